#include "zeb_frame_reassembler.h"

#include "zeb_packet.h"

namespace bas {

void FrameReassembler::clear() {
    bytes.clear();
    head = 0;
    expected = 0;
}

bool FrameReassembler::magicAtFront() const { return frameStartsWithMagic(front(), buffered()); }

bool FrameReassembler::takeExpectedSize() {
    uint64_t payload = framePayloadLength(front());
    if (payload > kMaxPayloadLength) {
        clear();
        return false;
    }
    expected = payload + kFrameHeaderSize;
    return true;
}

void FrameReassembler::feed(const char* data, size_t length, const Deliver& deliver) {
    if (length == 0) return;
    if (frameStartsWithMagic(data, length)) {
        if (expected != 0 && buffered() >= expected) deliver(front(), expected);
        clear();
        bytes.append(data, length);
        if (length < kFrameHeaderSize) return;
    } else {
        if (head > 0 && head >= bytes.size() / 2) {
            bytes.erase(0, head);
            head = 0;
        }
        bytes.append(data, length);
        if (buffered() < kFrameHeaderSize) return;
        if (!magicAtFront()) {
            // Stray bytes wait for a read that begins with the magic; past
            // the size limit they are not worth keeping.
            if (buffered() > kMaxPayloadLength) clear();
            return;
        }
    }
    if (!takeExpectedSize()) return;
    drain(deliver);
}

void FrameReassembler::drain(const Deliver& deliver) {
    for (;;) {
        if (expected == 0 || buffered() == 0 || buffered() < expected) return;
        if (!magicAtFront()) {
            clear();
            return;
        }
        deliver(front(), expected);
        head += expected;
        expected = 0;
        if (buffered() == 0) {
            clear();
            return;
        }
        if (!magicAtFront() || buffered() < kFrameHeaderSize) return;
        if (!takeExpectedSize()) return;
    }
}

}  // namespace bas
