// Feeds the frame reassembler arbitrary bytes cut into arbitrary reads, and
// checks that every delivered frame is whole: the magic in front and a size
// that matches its own header.
#include "zeb_frame_reassembler.h"
#include "zeb_packet.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    // The first byte chooses the read size, so splits vary with the input.
    size_t step = (data[0] % 64) + 1;
    data += 1;
    size -= 1;
    bas::FrameReassembler reassembler;
    auto check = [](const char* frame, size_t frameSize) {
        if (frameSize < bas::kFrameHeaderSize || !bas::frameStartsWithMagic(frame, frameSize)) abort();
        if (bas::framePayloadLength(frame) + bas::kFrameHeaderSize != frameSize) abort();
    };
    for (size_t offset = 0; offset < size; offset += step) {
        size_t length = size - offset < step ? size - offset : step;
        reassembler.feed(reinterpret_cast<const char*>(data) + offset, length, check);
    }
    return 0;
}
