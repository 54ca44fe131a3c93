#include "zeb_event.h"

#include <rapidjson/document.h>

#include <cstdio>

namespace zeb {

std::string escapeJsonText(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (unsigned char c : text) {
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
std::string infoValue(const char* info) {
    if (*info == '\0') return "\"\"";
    rapidjson::Document probe;
    probe.Parse(info);
    if (!probe.HasParseError()) return info;
    return "\"" + escapeJsonText(info) + "\"";
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
