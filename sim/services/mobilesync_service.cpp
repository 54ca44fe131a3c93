// "com.apple.mobilesync": contacts, calendars, bookmarks and notes synced
// with a host over DeviceLink. The device speaks first, offering DeviceLink
// version 300.100 (what libimobiledevice 1.3.0 accepts), then answers the
// host's sync sessions (core/sync_session.h) until it says goodbye or
// closes. A host that goes away without reading the last answer is a
// normal end.
#include "../service.h"
#include "core/app_service_frames.h"
#include "core/sync_messages.h"
#include "core/sync_session.h"

namespace zsim {
namespace {

bool exchangeVersions(ServiceStream& stream, std::vector<char>& scratch) {
    if (!sendSyncFrame(stream, encodeSyncFrame({plist_new_string("DLMessageVersionExchange"), plist_new_uint(300),
                                                plist_new_uint(100)})))
        return false;
    // Hosts answer with their major version, with the minor too, or with neither.
    PlistPtr answer = readSyncMessage(stream, scratch);
    if (!answer || messageString(answer.get(), 0) != "DLMessageVersionExchange" ||
        messageString(answer.get(), 1) != "DLVersionsOk")
        return false;
    return sendSyncFrame(stream, encodeSyncFrame({plist_new_string("DLMessageDeviceReady")}));
}

void serveMobileSync(ServiceStream& stream, const ServiceContext& ctx) {
    std::vector<char> scratch;
    if (!waitWhileStalled(ctx) || !exchangeVersions(stream, scratch)) return;
    SyncSession session(ctx);
    while (!deviceClosing(ctx)) {
        PlistPtr message = readSyncMessage(stream, scratch);
        if (!message) return;
        SyncSession::Step step = session.handle(message.get());
        for (const auto& frame : step.frames)
            if (!waitWhileStalled(ctx) || !sendSyncFrame(stream, frame)) return;
        if (step.close) return;
    }
}

ZSIM_REGISTER_SERVICE("com.apple.mobilesync", serveMobileSync);

}  // namespace
}  // namespace zsim
