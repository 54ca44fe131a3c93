// Turns the reads of one socket back into whole kCommand frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace bas {

// A frame whose payload claims more than this is taken as garbage: the
// buffered bytes are dropped instead of collecting until memory runs out.
inline constexpr uint64_t kMaxPayloadLength = 1ull << 30;

class FrameReassembler {
public:
    // Receives one whole frame: the 36-byte header followed by its payload.
    using Deliver = std::function<void(const char* frame, size_t size)>;

    // One read from the socket. A read that begins with the magic starts a
    // new frame, whatever was collected before it.
    void feed(const char* data, size_t length, const Deliver& deliver);

    size_t buffered() const { return bytes.size() - head; }
    uint64_t expectedSize() const { return expected; }

private:
    const char* front() const { return bytes.data() + head; }
    bool magicAtFront() const;
    // Reads the frame size at the front; false (and the buffer dropped) when
    // the stated length is absurd.
    bool takeExpectedSize();
    void drain(const Deliver& deliver);
    void clear();

    std::string bytes;  // everything read and not yet delivered, from `head` on
    size_t head = 0;    // delivered bytes at the start of `bytes`, erased lazily
    uint64_t expected = 0;  // size of the frame at the front, 0 if unknown
};

}  // namespace bas
