// The text of an event: version digits, NUL, the JSON envelope, NUL.
#pragma once

#include <cstdint>
#include <string>

struct EventEnvelope {
    int32_t version = 1;
    int32_t stage = 0;
    int64_t code = 0;
    const char* uuid = nullptr;  // null writes ""
    int32_t type = 0;            // 0: the tail goes out compressed, 1: raw
    const char* info = nullptr;  // raw JSON pasted in; null leaves the key out
    const void* tail = nullptr;
    uint64_t tailLength = 0;
};

namespace zeb {

// The envelope exactly as the parent reads it:
// <version>\0{"stage":S,"code":C,"uuid":"U","type":T,"info":I}\0
// An empty `info` is written as "". Pasted values go in as they stand,
// except that characters which would break the JSON text are escaped in
// `uuid` (and in an `info` that is not itself JSON).
std::string buildEventText(const EventEnvelope& envelope);

// Escapes quote, backslash and control characters for a JSON string body;
// ordinary text comes out unchanged.
std::string escapeJsonText(const std::string& text);

}  // namespace zeb
