// The worker's byte stream cut into frames. Bytes are received straight
// into the reader's own buffer and each frame is copied out once; the tail
// of a large frame (a file piece) is received straight into a block of its
// own instead, which the event then takes over without a copy.
#pragma once

#include "zeb_parent_frame.h"

#include <cstddef>
#include <string>

namespace zparent {

class FrameReader {
public:
    enum class Step { frame, needMore, broken };

    // The largest payload a parent takes; a longer length means the stream
    // is not the worker's (or is corrupt), not that memory should grow.
    static constexpr uint64_t kMaxPayload = uint64_t{1} << 30;

    // Payloads from this size on have their tail received apart.
    static constexpr uint64_t kTailApartFrom = 256 * 1024;
    // A tail received apart gets this much room before its bytes arrive (a
    // file piece fits whole); beyond it, room grows with what has arrived, so
    // a length announced by a broken stream costs no memory of its own.
    static constexpr uint64_t kTailRoomAhead = 4 * 1024 * 1024;

    // Room for `want` bytes where the next received bytes belong; `want` is
    // lowered when fewer fit there (the rest of a tail received apart). The
    // caller writes there and says how much with commit().
    char* room(size_t& want);
    void commit(size_t written);
    void append(const char* data, size_t length);

    // How many more bytes the frame at the front needs (at least 1).
    size_t missing() const;

    // The frame at the front, once it is whole. Keep-alive bytes between
    // frames are skipped. A frame that doesn't start with the worker's mark,
    // or announces more than kMaxPayload, makes the stream broken for good.
    Step take(Frame& frame);

private:
    // Begins receiving the front frame's tail apart, once its text is in.
    bool splitTail();
    bool fillingApart() const { return receivingApart && apartFilled < apartLength; }

    Frame apart;              // a large frame's header and text, its tail being received
    size_t apartLength = 0;   // the tail's announced length
    size_t apartFilled = 0;   // bytes of apart.tail received so far
    bool receivingApart = false;

    std::string bytes;
    size_t start = 0;
    size_t end = 0;
    bool isBroken = false;
};

}  // namespace zparent
