// The worker's byte stream cut into frames. Bytes are received straight
// into the reader's own buffer and each frame is copied out once.
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

    // Room for at least `want` bytes after what is buffered; the caller
    // writes there and says how much with commit().
    char* room(size_t want);
    void commit(size_t written) { end += written; }
    void append(const char* data, size_t length);

    // How many more bytes the frame at the front needs (at least 1).
    size_t missing() const;

    // The frame at the front, once it is whole. Keep-alive bytes between
    // frames are skipped. A frame that doesn't start with the worker's mark,
    // or announces more than kMaxPayload, makes the stream broken for good.
    Step take(Frame& frame);

private:
    std::string bytes;
    size_t start = 0;
    size_t end = 0;
    bool isBroken = false;
};

}  // namespace zparent
