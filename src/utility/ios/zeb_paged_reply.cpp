#include "zeb_paged_reply.h"

#include "zeb_client.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace zeb {

std::string countInfo(int64_t count) { return "{\"Count\":" + std::to_string(count) + "}"; }

void sendReplyEvent(const PagedReply& reply, int32_t stage, const char* info, const std::string* tail,
                    int64_t code) {
    EventEnvelope envelope;
    envelope.stage = stage;
    envelope.code = code;
    envelope.uuid = reply.uuid.c_str();
    envelope.info = info;
    if (tail) {
        envelope.tail = tail->data();
        envelope.tailLength = tail->size();
    }
    IPCPacket1 frame{};
    frame.taskId = reply.command->taskId;
    frame.commandType = reply.commandType;
    frame.packetStatus = 2;
    ZEBClient::instance()->sendEvent(envelope, &frame);
}

void sendPagedObject(const PagedReply& reply, int64_t count, const rapidjson::Value& object, size_t perChunk) {
    const std::string info = countInfo(count);
    sendReplyEvent(reply, 0, info.c_str(), nullptr);
    if (!object.IsObject() || perChunk == 0) return;
    // One chunk's text at a time: a long list never sits in memory twice.
    rapidjson::StringBuffer chunk;
    std::string tail;
    auto member = object.MemberBegin();
    while (member != object.MemberEnd()) {
        chunk.Clear();
        rapidjson::Writer<rapidjson::StringBuffer> writer(chunk);
        writer.StartObject();
        for (size_t n = 0; n < perChunk && member != object.MemberEnd(); ++n, ++member) {
            writer.Key(member->name.GetString(), member->name.GetStringLength());
            member->value.Accept(writer);
        }
        writer.EndObject();
        tail.assign(chunk.GetString(), chunk.GetSize());
        sendReplyEvent(reply, 1, info.c_str(), &tail);
    }
}

void sendPagedArray(const PagedReply& reply, int64_t count, const rapidjson::Value& array, size_t perChunk) {
    const std::string info = countInfo(count);
    sendReplyEvent(reply, 0, info.c_str(), nullptr);
    if (!array.IsArray() || perChunk == 0) return;
    rapidjson::StringBuffer chunk;
    std::string tail;
    for (auto item = array.Begin(); item != array.End();) {
        chunk.Clear();
        rapidjson::Writer<rapidjson::StringBuffer> writer(chunk);
        writer.StartArray();
        for (size_t n = 0; n < perChunk && item != array.End(); ++n, ++item) item->Accept(writer);
        writer.EndArray();
        tail.assign(chunk.GetString(), chunk.GetSize());
        sendReplyEvent(reply, 1, info.c_str(), &tail);
    }
}

}  // namespace zeb
