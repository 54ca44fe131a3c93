// A list for the parent: a head event with stage 0 and {"Count":n}, then
// stage 1 events with the same info, each carrying a chunk of the list as
// its tail. All go out in frames of the command's task with packetStatus 2,
// ahead of the command's final report.
#pragma once

#include "zeb_packet.h"

#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace zeb {

struct PagedReply {
    const IPCPacket1* command = nullptr;
    uint32_t commandType = 0;  // the number the parent files the list under
    std::string uuid;
};

// The head with `count`, then `object`'s members in chunks of at most
// `perChunk` members, each chunk the text of one JSON object.
void sendPagedObject(const PagedReply& reply, int64_t count, const rapidjson::Value& object, size_t perChunk);

// The head with `count`, then `array`'s elements in chunks of at most
// `perChunk`, each chunk the text of one JSON array.
void sendPagedArray(const PagedReply& reply, int64_t count, const rapidjson::Value& array, size_t perChunk);

// One event of the command: `info` null leaves the key out, `tail` null
// sends none.
void sendReplyEvent(const PagedReply& reply, int32_t stage, const char* info, const std::string* tail,
                    int64_t code = 0);

std::string countInfo(int64_t count);

}  // namespace zeb
