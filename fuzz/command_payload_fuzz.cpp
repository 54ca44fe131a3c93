// The dispatcher's reading of a command payload, whatever the parent sends:
// the JSON text and the tail parse or fail without a crash, the tail never
// inflates past its bound, and the report that repeats the "uuid" is JSON
// in valid UTF-8 that gives the uuid back (with U+FFFD for bytes that are
// no UTF-8).
#include "zeb_command_context.h"
#include "zeb_event.h"
#include "zeb_json_parse.h"
#include "zeb_zlib_buffer.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void checkReport(const std::string& uuid) {
    EventEnvelope envelope;
    envelope.code = 7;
    envelope.uuid = uuid.c_str();
    envelope.info = uuid.c_str();  // pasted as JSON when it is, as a text when not
    const std::string text = zeb::buildEventText(envelope);
    const size_t start = text.find('\0') + 1;
    const std::string json = text.substr(start, text.size() - start - 1);
    rapidjson::Document report;
    report.Parse<rapidjson::kParseValidateEncodingFlag>(json.c_str(), json.size());
    if (report.HasParseError() || !report.IsObject()) abort();
    const std::string back(report["uuid"].GetString(), report["uuid"].GetStringLength());
    if (back != zeb::validUtf8(uuid.c_str())) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The packet record always holds one NUL behind its payload.
    std::string payload(reinterpret_cast<const char*>(data), size);
    payload.push_back('\0');
    IPCPacket1 packet{};
    packet.data = reinterpret_cast<unsigned char*>(payload.data());
    packet.length = size;

    CommandContext context;
    context.packet = &packet;
    std::string text;
    if (!zeb::splitPayload(&packet, context.version, text, context.tail, context.tailLength)) return 0;
    if (zeb::parseJson(context.json, text.c_str(), text.size()) && context.json.IsObject()) {
        auto uuid = context.json.FindMember("uuid");
        if (uuid != context.json.MemberEnd() && uuid->value.IsString() &&
            uuid->value.GetStringLength() <= zeb::kUuidLimit)
            checkReport(std::string(uuid->value.GetString(), uuid->value.GetStringLength()));
    }
    checkReport(text.substr(0, zeb::kUuidLimit));

    std::string inflated;
    if (bas::decompressBuffer(inflated, context.tail, context.tailLength, 1 << 20) && inflated.size() > (1u << 20))
        abort();
    rapidjson::Document tail;
    context.readTail(tail);
    return 0;
}
