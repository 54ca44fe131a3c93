// Command 501 and CopyInstalledApps: Browse conversations with the
// installation proxy.
#include "zeb_app_messages.h"
#include "zeb_app_reply.h"
#include "zeb_module_app.h"
#include "zeb_paged_reply.h"
#include "zeb_sync_frames.h"

#include <string>

namespace {

const char kInstallationProxy[] = "com.apple.mobile.installation_proxy";
constexpr size_t kAppsPerEvent = 10;

// One Browse, its pages through the handler until "Complete". False when
// the device went away or the link broke first: the pages that came are
// kept, but the list is not whole.
bool exchange(AMDServiceConnectionRef connection, zeb::AppMessage kind, AppReplyContext& reply) {
    SyncMessage* message = zeb::encodeAppMessage(kind);
    if (!message) return true;
    SyncReceiveEnd end = SyncReceiveEnd::Handled;
    SyncExchange(connection, message, AppReplyHandler, &reply, &end);
    FreeSyncMessage(message);
    return end != SyncReceiveEnd::LinkFailed;
}

}  // namespace

int64_t ZEBModuleApp::listApps(CommandContext& context) {
    int32_t error = 0;
    ServicePtr proxy = zeb::StartService(context.device->handle, error, kInstallationProxy, nullptr, false);
    if (!proxy) return kCodeAppServiceFailed;
    AppReplyContext reply;
    reply.module = this;
    reply.udid = context.device->udid;
    reply.command = context.packet;
    reply.mode = kAppBrowseAttributes;
    bool whole = exchange(proxy->connection, zeb::AppMessage::BrowseAttributes, reply);
    reply.mode = kAppBrowseDiskUsage;
    whole = exchange(proxy->connection, zeb::AppMessage::BrowseDiskUsage, reply) && whole;

    // Groups of ten keep one event's size bounded.
    zeb::PagedReply list{context.packet, 501, context.device->udid};
    zeb::sendPagedObject(list, reply.apps.MemberCount(), reply.apps, kAppsPerEvent);
    // What came goes out either way; the code tells the parent it is not all.
    return whole ? kCodeSuccess : kCodeConversationBroke;
}

namespace zeb {

bool CopyInstalledApps(ZEBModuleApp* module, ZEBDevice& device, std::vector<CFTypeRef>& out) {
    int32_t error = 0;
    ServicePtr proxy = StartService(device.handle, error, kInstallationProxy, nullptr, false);
    if (!proxy) return false;
    AppReplyContext reply;
    reply.module = module;
    reply.udid = device.udid;
    reply.mode = kAppBrowseToCf;
    reply.apps_out = &out;
    exchange(proxy->connection, AppMessage::BrowseAttributes, reply);
    return true;
}

void forEachBrowsedApp(const std::vector<CFTypeRef>& pages,
                       const std::function<void(CFDictionaryRef app, const std::string& id)>& visit) {
    for (CFTypeRef page : pages) {
        const void* list = CfDictionaryValue(page, "CurrentList");
        if (!list || api().CFGetTypeID(list) != kZebCFArrayTypeID) continue;
        for (CFIndex i = 0, n = api().CFArrayGetCount(list); i < n; ++i) {
            auto app = static_cast<CFDictionaryRef>(api().CFArrayGetValueAtIndex(list, i));
            if (!app || api().CFGetTypeID(app) != kZebCFDictionaryTypeID) continue;
            std::string id;
            CfStringText(CfDictionaryValue(app, "CFBundleIdentifier"), id);
            visit(app, id);
        }
    }
}

}  // namespace zeb
