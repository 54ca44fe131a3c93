// Worker bytes as a parent reads them: the stream cut into reads of the size
// the first byte picks, frames taken apart, events parsed (tails inflated)
// and described as zebrelo-ctl prints them.
#include "zeb_parent_frame_reader.h"
#include "zeb_parent_link.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const size_t read = 1 + data[0] * 37;
    zparent::FrameReader reader;
    for (size_t at = 1; at < size;) {
        size_t length = std::min(read, size - at);
        reader.append(reinterpret_cast<const char*>(data + at), length);
        at += length;
        for (;;) {
            zparent::Frame frame;
            zparent::FrameReader::Step step = reader.take(frame);
            if (step == zparent::FrameReader::Step::broken) return 0;
            if (step == zparent::FrameReader::Step::needMore) break;
            zparent::Event event;
            if (!zparent::parseEvent(std::move(frame), event)) continue;
            zparent::describeEvent(event);
            zparent::isFinalReport(event);
        }
    }
    return 0;
}
