#include "zeb_parent_frame.h"

#include "zeb_json_parse.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace zparent {

namespace {

constexpr size_t kLargestTail = size_t{1} << 30;

template <typename T>
void putLittleEndian(std::string& out, T value) {
    for (size_t i = 0; i < sizeof(T); ++i) out.push_back(static_cast<char>((static_cast<uint64_t>(value) >> (8 * i)) & 0xFF));
}

std::string deflateText(const std::string& text) {
    uLongf size = compressBound(text.size());
    std::string out(size, '\0');
    compress2(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(text.data()), text.size(), 9);
    out.resize(size);
    return out;
}

bool inflateAll(std::string_view in, std::string& out) {
    z_stream stream{};
    if (inflateInit(&stream) != Z_OK) return false;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
    stream.avail_in = static_cast<uInt>(in.size());
    int result = Z_OK;
    char block[16384];
    while (result == Z_OK) {
        stream.next_out = reinterpret_cast<Bytef*>(block);
        stream.avail_out = sizeof block;
        result = inflate(&stream, Z_NO_FLUSH);
        out.append(block, sizeof block - stream.avail_out);
        // A few bytes can inflate to gigabytes; no tail of the worker's is
        // near this size.
        if (out.size() > kLargestTail) result = Z_MEM_ERROR;
    }
    inflateEnd(&stream);
    return result == Z_STREAM_END;
}

std::string toJson(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return buffer.GetString();
}

// The 36-byte header: mark, six fixed bytes, the three fields, the length.
std::string frameHeader(uint64_t taskId, uint32_t commandType, uint16_t packetStatus, uint64_t payloadLength) {
    std::string out = "kCommand";
    out.append("\x01\x02\x03\x04\x05\x06", 6);
    putLittleEndian(out, taskId);
    putLittleEndian(out, commandType);
    putLittleEndian(out, packetStatus);
    putLittleEndian(out, payloadLength);
    return out;
}

}  // namespace

std::string encodeFrame(const Frame& frame) {
    std::string out =
        frameHeader(frame.taskId, frame.commandType, frame.packetStatus, frame.payload.size() + frame.tail.size());
    out += frame.payload;
    out += frame.tail;
    return out;
}

std::string encodeCommandHead(uint64_t taskId, uint32_t commandType, const std::string& json, uint64_t tailLength,
                              uint16_t packetStatus) {
    std::string out = frameHeader(taskId, commandType, packetStatus, json.size() + 3 + tailLength);
    out.append("1", 1).push_back('\0');
    out += json;
    out.push_back('\0');
    return out;
}

std::string encodeCommand(uint64_t taskId, uint32_t commandType, const std::string& json,
                          const std::optional<std::string>& tailJson, uint16_t packetStatus) {
    const std::string tail = tailJson ? deflateText(*tailJson) : std::string();
    return encodeCommandHead(taskId, commandType, json, tail.size(), packetStatus) + tail;
}

bool parseEvent(Frame frame, Event& event) {
    const std::string& payload = frame.payload;
    size_t firstNul = payload.find('\0');
    if (firstNul == std::string::npos) return false;
    size_t secondNul = payload.find('\0', firstNul + 1);
    if (secondNul == std::string::npos) return false;
    event.version = payload.substr(0, firstNul);
    event.envelope = payload.substr(firstNul + 1, secondNul - firstNul - 1);

    rapidjson::Document document;
    zeb::parseJson(document, event.envelope.c_str(), event.envelope.size());
    if (document.HasParseError() || !document.IsObject()) return false;
    auto integer = [&](const char* key) -> int64_t {
        auto found = document.FindMember(key);
        return found != document.MemberEnd() && found->value.IsInt64() ? found->value.GetInt64() : 0;
    };
    event.stage = integer("stage");
    event.code = integer("code");
    event.type = integer("type");
    auto uuid = document.FindMember("uuid");
    if (uuid != document.MemberEnd() && uuid->value.IsString()) event.uuid = uuid->value.GetString();
    auto info = document.FindMember("info");
    event.hasInfo = info != document.MemberEnd();
    if (event.hasInfo) event.info = toJson(info->value);

    // The tail was either received apart (a large frame) or follows the text.
    const bool apart = !frame.tail.empty();
    const std::string_view tail = apart ? std::string_view(frame.tail)
                                        : std::string_view(payload).substr(std::min(payload.size(), secondNul + 1));
    if (event.type == 0) {
        if (!tail.empty()) event.tailBroken = !inflateAll(tail, event.tail);
    } else if (apart) {
        event.tail = std::move(frame.tail);  // a file piece is taken over, not copied
    } else {
        event.tail.assign(tail.data(), tail.size());
    }
    frame.payload.clear();
    frame.tail.clear();
    event.frame = std::move(frame);
    return true;
}

std::string describeEvent(const Event& event) {
    rapidjson::Document line(rapidjson::kObjectType);
    auto& a = line.GetAllocator();
    line.AddMember("taskId", event.frame.taskId, a);
    line.AddMember("commandType", event.frame.commandType, a);
    line.AddMember("packetStatus", event.frame.packetStatus, a);
    rapidjson::Document envelope;
    zeb::parseJson(envelope, event.envelope.c_str(), event.envelope.size());
    rapidjson::Value envelopeValue;
    envelopeValue.CopyFrom(envelope, a);
    line.AddMember("event", envelopeValue, a);
    if (!event.tail.empty()) {
        rapidjson::Document tail;
        zeb::parseJson(tail, event.tail.c_str(), event.tail.size());
        if (event.type == 0 && !event.tailBroken && !tail.HasParseError()) {
            rapidjson::Value tailValue;
            tailValue.CopyFrom(tail, a);
            line.AddMember("tail", tailValue, a);
        } else {
            line.AddMember("tailBytes", static_cast<uint64_t>(event.tail.size()), a);
        }
    }
    return toJson(line);
}

}  // namespace zparent
