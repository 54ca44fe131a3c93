#include "zeb_command_context.h"

#include "zeb_json_parse.h"
#include "zeb_zlib_buffer.h"

#include <cstdlib>
#include <cstring>

namespace zeb {

bool splitPayload(const IPCPacket1* packet, int& version, std::string& json, const unsigned char*& tail,
                  size_t& tailLength) {
    version = 0;
    tail = nullptr;
    tailLength = 0;
    if (!packet->data || packet->length == 0) return false;
    const char* data = reinterpret_cast<const char*>(packet->data);
    const size_t length = packet->length;
    version = atoi(data);
    const char* versionEnd = static_cast<const char*>(memchr(data, '\0', length));
    if (!versionEnd) return false;
    const char* text = versionEnd + 1;
    const size_t rest = length - static_cast<size_t>(text - data);
    const char* textEnd = static_cast<const char*>(memchr(text, '\0', rest));
    // The record always holds one NUL behind the payload, so an unended
    // JSON text still ends there.
    const size_t textLength = textEnd ? static_cast<size_t>(textEnd - text) : rest;
    json.assign(text, textLength);
    if (textEnd && static_cast<size_t>(textEnd + 1 - data) < length) {
        tail = reinterpret_cast<const unsigned char*>(textEnd + 1);
        tailLength = length - static_cast<size_t>(textEnd + 1 - data);
    }
    return true;
}

}  // namespace zeb

bool CommandContext::tailText(std::string& out) const {
    return bas::decompressBuffer(out, tail, tailLength);
}

bool CommandContext::readTail(rapidjson::Document& out) const {
    std::string text;
    if (!tailText(text)) return false;
    zeb::parseJson(out, text.c_str(), text.size());
    return !out.HasParseError();
}

const rapidjson::Value* CommandContext::info() const {
    if (!json.IsObject()) return nullptr;
    auto found = json.FindMember("info");
    return found == json.MemberEnd() ? nullptr : &found->value;
}
