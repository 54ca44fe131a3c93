// Apps on the device, over the installation proxy, springboard and AFC.
//
//   501  list the user apps: a stage 0 head {"Count":n}, then stage 1 events
//        whose tails are JSON objects of up to 10 apps keyed by bundle
//        identifier (attributes, store metadata, "app-size", "data-size");
//        14 when the proxy does not start, 2 when the device cut the list
//        off (the apps that came were sent).
//   502  icons: tail ["id", ...]; one event per icon found, type 1, info
//        {"bundle_id":"id"}, the PNG as the raw tail; 8 bad tail, 14.
//   504  install local .ipa files: tail ["/path.ipa", ...]; per package a
//        metadata event (stage 0, JSON tail), an icon event (stage 1, type 1)
//        and stage 2 progress events whose code is the percent; the last one
//        has packetStatus 2 (installed) or 6 (refused). 8, 12 (AFC), 14.
//   505  uninstall, 506 archive: tail ["id", ...]; stage 0 progress events,
//        the last with packetStatus 2 or 6; 505's carry "id" as info. 8, 14.
//
// Every command ends with one report; a failed item never ends the list.
#pragma once

#include "zeb_module.h"

#include <functional>
#include <string>
#include <vector>

inline constexpr int64_t kCodeAppServiceFailed = 14;

class ZEBModuleApp : public ZEBModule {
public:
    int execute(IPCPacket1* packet) override;

private:
    int64_t listApps(CommandContext& context);
    int64_t fetchIcons(CommandContext& context);
    int64_t installPackages(CommandContext& context);
    int64_t changeApps(CommandContext& context);
};

namespace zeb {

// One owned CF dictionary per Browse page of the device's user apps (each
// holds "CurrentList"); the caller releases them. False when the proxy does
// not start.
bool CopyInstalledApps(ZEBModuleApp* module, ZEBDevice& device, std::vector<CFTypeRef>& out);

// Every app dictionary of those pages in order, with its identifier (empty
// when it has none).
void forEachBrowsedApp(const std::vector<CFTypeRef>& pages,
                       const std::function<void(CFDictionaryRef app, const std::string& id)>& visit);

// springboard's answer for one app as an owned CF dictionary ("pngData"
// holds the PNG when the device has an icon), or null when the service does
// not start.
CFTypeRef CopyAppIcon(ZEBModuleApp* module, const IPCPacket1* command, ZEBDevice& device,
                      const std::string& bundleId);

// Text items of a JSON array tail; false when the tail is no array.
bool tailTexts(const CommandContext& context, std::vector<std::string>& items);

}  // namespace zeb
