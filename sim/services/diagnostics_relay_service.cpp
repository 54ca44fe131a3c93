// "com.apple.mobile.diagnostics_relay": property lists framed like lockdown
// (4-byte big-endian length, then the plist), one answer per request, in
// the form the host used.
#include "../service.h"
#include "diagnostics_relay_answers.h"

#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

namespace zsim {
namespace {

constexpr uint32_t kMaxRequest = 1u << 20;

bool deviceClosing(const ServiceContext& ctx) { return ctx.closing && ctx.closing->load(); }

bool waitWhileStalled(const ServiceContext& ctx) {
    while (ctx.stalled && ctx.stalled->load() && !deviceClosing(ctx))
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return !deviceClosing(ctx);
}

// The host reads the length with a single receive, so length and body
// leave together.
bool sendPlist(ServiceStream& stream, plist_t answer, bool binary) {
    char* body = nullptr;
    uint32_t size = 0;
    if (binary)
        plist_to_bin(answer, &body, &size);
    else
        plist_to_xml(answer, &body, &size);
    if (!body) return false;
    std::vector<unsigned char> frame(4 + size);
    frame[0] = static_cast<unsigned char>(size >> 24);
    frame[1] = static_cast<unsigned char>(size >> 16);
    frame[2] = static_cast<unsigned char>(size >> 8);
    frame[3] = static_cast<unsigned char>(size);
    std::copy(body, body + size, frame.begin() + 4);
    free(body);
    return stream.writeAll(frame.data(), frame.size());
}

void serveDiagnosticsRelay(ServiceStream& stream, const ServiceContext& ctx) {
    std::vector<char> body;
    while (!deviceClosing(ctx)) {
        unsigned char len[4];
        if (!stream.readExact(len, sizeof len)) return;
        const uint32_t size = uint32_t(len[0]) << 24 | uint32_t(len[1]) << 16 | uint32_t(len[2]) << 8 | len[3];
        if (size == 0 || size > kMaxRequest) return;  // not a plist peer
        body.resize(size);
        if (!stream.readExact(body.data(), size)) return;
        plist_t request = nullptr;
        plist_from_memory(body.data(), size, &request);
        if (!request) return;
        const bool binary = plist_is_binary(body.data(), size);
        diagnostics::Reply reply = diagnostics::answerRequest(request, ctx.profile);
        plist_free(request);
        const bool sent = waitWhileStalled(ctx) && sendPlist(stream, reply.answer, binary);
        plist_free(reply.answer);
        if (!sent || reply.endsSession) return;
    }
}

ZSIM_REGISTER_SERVICE("com.apple.mobile.diagnostics_relay", serveDiagnosticsRelay);

}  // namespace
}  // namespace zsim
