// Command 1700: the user's media emptied, the user's apps removed, and a
// prepared backup restored over what is left.
#include "zeb_afc.h"
#include "zeb_app_messages.h"
#include "zeb_command_table.h"
#include "zeb_module_app.h"
#include "zeb_module_erase.h"
#include "zeb_module_itunes.h"
#include "zeb_paged_reply.h"
#include "zeb_plist_bridge.h"
#include "zeb_sync_frames.h"

#include <iterator>

namespace {

// Emptied in this order; each folder itself stays. The "/iTunes_Control"
// step takes what its three sub-folders left behind.
const char* const kUserFolders[] = {
    "/PhotoData/Thumbnails",    "/PhotoData/MISC",   "/PhotoData/Metadata",
    "/PhotoData/Videos",        "/PhotoData/AlbumsMetadata", "/PhotoData/Logs",
    "/PhotoData/Caches",        "/PhotoData/PhotoCloudSharingData", "/Photos",
    "/PhotoStreamsData",        "/DCIM",             "/iTunes_Control/Music",
    "/iTunes_Control/Artwork",  "/iTunes_Control/iTunes/Artwork", "/iTunes_Control/Sync",
    "/iTunes_Control",          "/Books",            "/Podcasts",
    "/Purchases",               "/Radio",            "/Recordings",
    "/Downloads",
};
constexpr int64_t kFolderSteps = static_cast<int64_t>(std::size(kUserFolders)) + 1;

constexpr int32_t kStageFolders = 0;
constexpr int32_t kStageRestore = 1;
constexpr int32_t kStageApps = 2;

// The proxy's answers to one uninstall, read until it is done: a proxy
// that still has statuses to send when the host hangs up drops the
// commands queued behind them, and those apps would stay.
void UninstallDoneHandler(void*, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    *result = 1;
    PlistVariant frame;
    const PlistVariant* answer = DecodeFrame(bytes, length, frame) ? backup::frameMessage(frame) : nullptr;
    if (!answer || answer->tag() != VariantTag::Dictionary) {
        *keepWaiting = false;
        return;
    }
    const PlistVariant* status = answer->Find("Status");
    *keepWaiting = !answer->Find("Error") && !(status && status->tag() == VariantTag::String && status->text() == "Complete");
}

void uninstallApps(ZEBDevice& device, AMDServiceConnectionRef proxy, const zeb::PagedReply& events) {
    std::vector<CFTypeRef> pages;
    auto* apps = dynamic_cast<ZEBModuleApp*>(zeb::findModule(501));
    if (apps) zeb::CopyInstalledApps(apps, device, pages);
    int64_t total = 0, done = 0;
    zeb::forEachBrowsedApp(pages, [&](CFDictionaryRef, const std::string&) { ++total; });
    zeb::forEachBrowsedApp(pages, [&](CFDictionaryRef, const std::string& id) {
        if (id.empty()) return;
        SyncMessage* message = zeb::encodeAppMessage(zeb::AppMessage::Uninstall, id);
        if (!message) return;
        SyncExchange(proxy, message, UninstallDoneHandler, nullptr);
        FreeSyncMessage(message);
        ++done;
        zeb::sendReplyEvent(events, kStageApps, nullptr, nullptr, done * 100 / total);
    });
    for (CFTypeRef page : pages) zeb::api().CFRelease(page);
    if (done == 0) zeb::sendReplyEvent(events, kStageApps, nullptr, nullptr, 100);
}

}  // namespace

TaskResult ZEBModuleErase::eraseContent(CommandContext& context) {
    ZEBDevice& device = *context.device;
    int32_t error = 0;
    ServicePtr afc = zeb::StartService(device.handle, error, "com.apple.afc", nullptr, true);
    if (!afc || !afc->afc) return {kCodeEraseAfcFailed, "open afc error"};
    ServicePtr proxy = zeb::StartService(device.handle, error, "com.apple.mobile.installation_proxy", nullptr, false);
    if (!proxy) return {kCodeEraseProxyFailed, "open app uninstall service error"};
    auto* itunes = dynamic_cast<ZEBModuleiTunes*>(zeb::findModule(1601));

    const zeb::PagedReply events{context.packet, context.packet->commandType, context.uuid};
    int64_t step = 0;
    for (const char* folder : kUserFolders) {
        zeb::sendReplyEvent(events, kStageFolders, nullptr, nullptr, 100 * ++step / kFolderSteps);
        zeb::AfcRemoveTree(afc->afc, folder, false, false);  // a folder that is not there changes nothing
    }
    zeb::sendReplyEvent(events, kStageFolders, nullptr, nullptr, 100);
    afc.reset();

    uninstallApps(device, proxy->connection, events);
    proxy.reset();

    if (!itunes) return {kCodeConversationBroke, "Task error Unknown."};
    return itunes->restoreBackup(device, context.json, [&](int64_t hundredths) {
        zeb::sendReplyEvent(events, kStageRestore, nullptr, nullptr, hundredths);
    });
}
