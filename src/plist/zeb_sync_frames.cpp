#include "zeb_sync_frames.h"

#include <vector>

#include "zeb_mobile_export_fun.h"

namespace {

// Reads exactly length bytes; a receive of less than 1 ends it.
bool ReceiveExactly(CMobileExportFun& md, AMDServiceConnectionRef connection, uint8_t* buffer, size_t length) {
    size_t done = 0;
    while (done < length) {
        ssize_t got = md.AMDServiceConnectionReceive(connection, buffer + done, length - done);
        if (got < 1) return false;
        done += static_cast<size_t>(got);
    }
    return true;
}

}  // namespace

bool SyncSendOnly(AMDServiceConnectionRef connection, const SyncMessage* message) {
    auto& md = CMobileExportFun::GetInstance();
    if (!md.initialised || !message) return false;
    uint32_t length = message->length;
    uint8_t prefix[4] = {static_cast<uint8_t>(length >> 24), static_cast<uint8_t>(length >> 16),
                         static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
    md.AMDServiceConnectionSend(connection, prefix, sizeof prefix);
    return md.AMDServiceConnectionSend(connection, message->bytes, message->length) >= 0;
}

uint8_t SyncReceive(AMDServiceConnectionRef connection, SyncMessageHandler handler, void* context,
                    SyncReceiveEnd* end) {
    auto& md = CMobileExportFun::GetInstance();
    uint8_t result = 0;
    SyncReceiveEnd ended = SyncReceiveEnd::LinkFailed;  // until a frame says otherwise
    std::vector<uint8_t> body;  // reused across the frames of one conversation
    while (md.initialised && handler) {
        uint8_t prefix[4];
        if (!ReceiveExactly(md, connection, prefix, sizeof prefix)) break;
        uint32_t length = (uint32_t{prefix[0]} << 24) | (uint32_t{prefix[1]} << 16) | (uint32_t{prefix[2]} << 8) |
                          uint32_t{prefix[3]};
        if (length < 1 || length > kSyncMaxFrame) {
            ended = SyncReceiveEnd::BadLength;
            break;
        }
        body.resize(length);
        if (!ReceiveExactly(md, connection, body.data(), length)) break;
        bool keepWaiting = false;
        handler(context, body.data(), length, &keepWaiting, &result);
        if (!keepWaiting) {
            ended = SyncReceiveEnd::Handled;
            break;
        }
    }
    if (end) *end = ended;
    return result;
}

uint8_t SyncExchange(AMDServiceConnectionRef connection, const SyncMessage* message, SyncMessageHandler handler,
                     void* context, SyncReceiveEnd* end) {
    SyncSendOnly(connection, message);
    return SyncReceive(connection, handler, context, end);
}
