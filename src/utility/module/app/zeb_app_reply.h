// One conversation with the installation proxy or springboard, and the one
// handler that reads every reply frame of it, steered by the mode.
#pragma once

#include "zeb_event.h"
#include "zeb_mobile_device_api.h"
#include "zeb_packet.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

class ZEBModuleApp;

enum AppReplyMode : int32_t {
    kAppBrowseAttributes = 0,  // 501, first message: one JSON object per app
    kAppIconToParent = 1,      // 502: the PNG as a raw tail
    kAppUninstall = 2,         // 505: progress
    kAppInstall = 3,           // 504: progress
    kAppArchive = 4,           // 506: progress
    kAppBrowseDiskUsage = 5,   // 501, second message: sizes into the objects
    kAppBrowseToCf = 6,        // CopyInstalledApps: owned CF dictionaries
    kAppIconToCf = 7,          // CopyAppIcon: the reply as a CF value
};

// Where the handler's events go; the worker's is the parent link.
using AppEventSink = void (*)(const EventEnvelope& envelope, IPCPacket1* frame);

struct AppReplyContext {
    int32_t mode = kAppBrowseAttributes;
    std::string udid;
    ZEBModuleApp* module = nullptr;
    std::vector<CFTypeRef>* apps_out = nullptr;
    CFTypeRef cf_reply = nullptr;
    // Mode 0 and 5: one member per app, keyed by its bundle identifier.
    rapidjson::Document apps;
    // Where each identifier's member sits in `apps`, so that 1,000 apps
    // don't cost a million name comparisons.
    std::unordered_map<std::string, rapidjson::SizeType> app_index;
    const IPCPacket1* command = nullptr;
    std::string bundle_id;
    std::string current_text;
    AppEventSink sink = nullptr;  // null sends nothing

    AppReplyContext() { apps.SetObject(); }
};

// SyncMessageHandler for every app conversation.
void AppReplyHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result);

namespace zeb {
// The sink that writes to the parent.
void sendAppEvent(const EventEnvelope& envelope, IPCPacket1* frame);
}  // namespace zeb
