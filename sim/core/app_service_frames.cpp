#include "core/app_service_frames.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace zsim {

Frame readFrame(ServiceStream& stream, std::vector<char>& scratch, uint32_t maxSize) {
    Frame frame;
    unsigned char len[4];
    if (!stream.readExact(len, sizeof len)) return frame;
    const uint32_t size = uint32_t(len[0]) << 24 | uint32_t(len[1]) << 16 | uint32_t(len[2]) << 8 | len[3];
    if (size == 0 || size > maxSize) return frame;
    scratch.resize(size);
    if (!stream.readExact(scratch.data(), size)) return frame;
    frame.binary = size >= 8 && memcmp(scratch.data(), "bplist00", 8) == 0;
    frame.plist = parsePlist(scratch.data(), size);
    if (frame.plist && plist_get_node_type(frame.plist.get()) != PLIST_DICT) frame.plist.reset();
    return frame;
}

bool sendFrame(ServiceStream& stream, plist_t message, bool binary) {
    char* body = nullptr;
    uint32_t size = 0;
    if (binary)
        plist_to_bin(message, &body, &size);
    else
        plist_to_xml(message, &body, &size);
    if (!body) return false;
    std::vector<unsigned char> out(4 + size);
    out[0] = static_cast<unsigned char>(size >> 24);
    out[1] = static_cast<unsigned char>(size >> 16);
    out[2] = static_cast<unsigned char>(size >> 8);
    out[3] = static_cast<unsigned char>(size);
    memcpy(out.data() + 4, body, size);
    free(body);
    return stream.writeAll(out.data(), out.size());
}

bool deviceClosing(const ServiceContext& ctx) { return ctx.closing && ctx.closing->load(); }

bool waitWhileStalled(const ServiceContext& ctx) {
    while (ctx.stalled && ctx.stalled->load() && !deviceClosing(ctx))
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return !deviceClosing(ctx);
}

}  // namespace zsim
