// The parent's side of the kCommand frame: what a parent sends, and the
// events it reads back.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zparent {

struct Frame {
    uint64_t taskId = 0;
    uint32_t commandType = 0;
    uint16_t packetStatus = 0;
    std::string payload;
    // A large frame's bytes behind its text (version, NUL, JSON, NUL), when
    // the reader received them into a block of their own: `payload` then
    // ends at the text's NUL. Empty otherwise.
    std::string tail;
};

// A worker event with its envelope taken apart. `tail` is inflated when the
// envelope's type is 0 and handed over untouched when it is 1.
struct Event {
    Frame frame;
    std::string version;   // the digits before the first NUL
    std::string envelope;  // the JSON text as it came
    int64_t stage = 0;
    int64_t code = 0;
    std::string uuid;
    int64_t type = 0;
    bool hasInfo = false;
    std::string info;      // the "info" value re-serialised as JSON
    std::string tail;
    bool tailBroken = false;  // a type 0 tail that didn't inflate
};

// header + "1\0" + json + "\0" + zlib(tailJson) when a tail is given.
std::string encodeCommand(uint64_t taskId, uint32_t commandType, const std::string& json,
                          const std::optional<std::string>& tailJson = std::nullopt, uint16_t packetStatus = 0);
std::string encodeFrame(const Frame& frame);
// A command's header, version and JSON text, for a raw tail of tailLength
// bytes that the caller sends right behind it.
std::string encodeCommandHead(uint64_t taskId, uint32_t commandType, const std::string& json, uint64_t tailLength,
                              uint16_t packetStatus = 0);

// Parses the payload of a frame into an event; false when the payload is
// not version, NUL, a JSON object, NUL. The event keeps the frame's header
// fields; the payload itself is not kept, only its parts.
bool parseEvent(Frame frame, Event& event);

// One JSON line for a person or a script: the frame fields, the envelope,
// and the tail as JSON (when it is JSON) or as a byte count.
std::string describeEvent(const Event& event);

}  // namespace zparent
