// The text of an event: version digits, NUL, the JSON envelope, NUL.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

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

// Only 16 bits of an event text's length travel in its frame: a text this
// long or longer cannot be sent whole.
inline constexpr size_t kEventTextLimit = 65536;
// The longest "uuid" a command may carry: far above any device's UDID, far
// below what would push its answers past kEventTextLimit.
inline constexpr size_t kUuidLimit = 1024;

// Escapes quote, backslash and control characters for a JSON string body,
// and writes bytes that are no UTF-8 as U+FFFD; ordinary text comes out
// unchanged.
std::string escapeJsonText(const std::string& text);
// The text with every byte that is no UTF-8 replaced by U+FFFD.
std::string validUtf8(std::string_view text);
bool isValidUtf8(std::string_view text);

}  // namespace zeb
