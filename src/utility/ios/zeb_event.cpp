#include "zeb_event.h"

#include "zeb_json_parse.h"

#include <rapidjson/document.h>

#include <cstdio>

namespace zeb {

namespace {

// The length of the well-formed UTF-8 sequence at text[i], or 0 when the
// bytes there are not one (a stray continuation byte, a cut sequence, an
// overlong form, a surrogate, a value past U+10FFFF).
size_t utf8SequenceAt(const std::string_view text, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80) return 1;
    size_t length;
    unsigned char low = 0x80, high = 0xBF;  // the range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) length = 2;
    else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (text.size() - i < length) return 0;
    if (byte(i + 1) < low || byte(i + 1) > high) return 0;
    for (size_t k = 2; k < length; ++k)
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
    return length;
}

constexpr char kReplacementCharacter[] = "\xEF\xBF\xBD";  // U+FFFD

// Appends the UTF-8 sequence at text[i], or U+FFFD for its first byte when
// there is none; the index after what was taken.
size_t appendUtf8At(std::string& out, const std::string_view text, size_t i) {
    const size_t length = utf8SequenceAt(text, i);
    if (length == 0) {
        out += kReplacementCharacter;
        return i + 1;
    }
    out.append(text.data() + i, length);
    return i + length;
}

}  // namespace

std::string validUtf8(const std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) i = appendUtf8At(out, text, i);
    return out;
}

bool isValidUtf8(const std::string_view text) {
    for (size_t i = 0; i < text.size();) {
        const size_t length = utf8SequenceAt(text, i);
        if (length == 0) return false;
        i += length;
    }
    return true;
}

std::string escapeJsonText(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            // Bytes that are no UTF-8 would make the whole event unreadable
            // to a JSON reader; each goes out as U+FFFD.
            i = appendUtf8At(out, text, i);
            continue;
        }
        ++i;
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (c < 0x20) {
                    char escaped[8];
                    snprintf(escaped, sizeof escaped, "\\u%04x", c);
                    out += escaped;
                } else {
                    out.push_back(static_cast<char>(c));
                }
        }
    }
    return out;
}

namespace {

// Callers paste JSON (an object, a quoted text, a number). Anything that is
// not valid JSON would break the whole event, so it goes in as a quoted text.
// Bytes that are no UTF-8 can only sit inside the strings of a JSON text,
// so replacing them keeps the text JSON.
std::string infoValue(const char* info) {
    if (*info == '\0') return "\"\"";
    std::string text = info;
    if (!isValidUtf8(text)) text = validUtf8(text);
    rapidjson::Document probe;
    if (parseJson(probe, text.c_str(), text.size())) return text;
    return "\"" + escapeJsonText(text) + "\"";
}

}  // namespace

std::string buildEventText(const EventEnvelope& envelope) {
    std::string text = std::to_string(envelope.version);
    text.push_back('\0');
    text += "{\"stage\":" + std::to_string(envelope.stage);
    text += ",\"code\":" + std::to_string(envelope.code);
    text += ",\"uuid\":\"" + escapeJsonText(envelope.uuid ? envelope.uuid : "") + "\"";
    text += ",\"type\":" + std::to_string(envelope.type);
    if (envelope.info) text += ",\"info\":" + infoValue(envelope.info);
    text += "}";
    text.push_back('\0');
    return text;
}

}  // namespace zeb
