// Command 504: install local .ipa packages. Each package is announced with
// its store metadata and icon, staged on the device over AFC, and handed to
// the installation proxy as an upgrade.
#include "zeb_afc.h"
#include "zeb_app_messages.h"
#include "zeb_app_metadata.h"
#include "zeb_app_reply.h"
#include "zeb_download.h"
#include "zeb_module_app.h"
#include "zeb_sync_frames.h"
#include "zeb_task_table.h"
#include "zeb_zip.h"

#include <glog/logging.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <filesystem>

namespace {

const char kStagingFolder[] = "general_storage";

void sendInstallEvent(const CommandContext& context, int32_t stage, int32_t type, const std::string& tail) {
    EventEnvelope envelope;
    envelope.stage = stage;
    envelope.type = type;
    envelope.uuid = context.device->udid.c_str();
    envelope.tail = tail.data();
    envelope.tailLength = tail.size();
    IPCPacket1 frame{};
    frame.taskId = context.packet->taskId;
    frame.commandType = 504;
    frame.packetStatus = 2;
    zeb::sendAppEvent(envelope, &frame);
}

// The package's store metadata as the parent's JSON object; false when the
// package has none or it names no bundle identifier.
bool readPackageMetadata(const std::filesystem::path& package, rapidjson::Document& object) {
    object.SetObject();
    std::string plist;
    if (!zeb::readZipEntry(plist, package, "iTunesMetadata.plist") || plist.empty()) return false;
    PlistVariant decoded;
    if (!DecodeFrame(reinterpret_cast<const uint8_t*>(plist.data()), plist.size(), decoded)) return false;
    const PlistVariant* metadata = zeb::firstDictionary(decoded);
    if (!metadata) return false;
    zeb::addMetadataMembers(*metadata, object, object.GetAllocator());
    auto identifier = object.FindMember("CFBundleIdentifier");
    return identifier != object.MemberEnd() && identifier->value.IsString() && identifier->value.GetStringLength() > 0;
}

// The identifier names the staged file, so it must stay one plain name.
bool isPlainName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\\') == std::string::npos && name.find('\0') == std::string::npos;
}

}  // namespace

int64_t ZEBModuleApp::installPackages(CommandContext& context) {
    std::vector<std::string> packages;
    if (!zeb::tailTexts(context, packages)) return kCodeBadTail;
    int32_t error = 0;
    ServicePtr afc = zeb::StartService(context.device->handle, error, "com.apple.afc", nullptr, true);
    if (!afc || !afc->afc) return kCodeServiceFailed;
    ServicePtr proxy =
        zeb::StartService(context.device->handle, error, "com.apple.mobile.installation_proxy", nullptr, false);
    if (!proxy) return kCodeAppServiceFailed;

    AppReplyContext reply;
    reply.module = this;
    reply.udid = context.device->udid;
    reply.command = context.packet;
    reply.mode = kAppInstall;
    reply.sink = zeb::sendAppEvent;
    for (const std::string& path : packages) {
        if (context.task && zeb::isCancelled(context.device->taskTable, context.task)) return kCodeCancelled;
        const std::filesystem::path package(path);
        rapidjson::Document metadata;
        if (!readPackageMetadata(package, metadata)) {
            LOG(WARNING) << "App: no store metadata in " << path;
            continue;
        }
        rapidjson::StringBuffer text;
        rapidjson::Writer<rapidjson::StringBuffer> writer(text);
        metadata.Accept(writer);
        sendInstallEvent(context, 0, 0, std::string(text.GetString(), text.GetSize()));

        auto iconUrl = metadata.FindMember("softwareIcon57x57URL");
        std::string icon;
        bool iconReady = true;
        if (iconUrl != metadata.MemberEnd() && iconUrl->value.IsString())
            iconReady = zeb::fetchToString(iconUrl->value.GetString(), icon) == 0;
        if (iconReady) sendInstallEvent(context, 1, 1, icon);

        const std::string bundleId = metadata["CFBundleIdentifier"].GetString();
        if (!isPlainName(bundleId)) {
            LOG(WARNING) << "App: refused to stage a package named " << bundleId;
            continue;
        }
        zeb::AfcMakeDirectory(afc->afc, kStagingFolder);
        const std::string devicePath = std::string(kStagingFolder) + "/" + bundleId + ".ipa";
        if (!zeb::AfcUploadFile(afc->afc, package, devicePath)) {
            LOG(WARNING) << "App: staging failed for " << path;
            continue;
        }
        SyncMessage* message = zeb::encodeAppMessage(zeb::AppMessage::Upgrade, devicePath);
        if (!message) continue;
        reply.bundle_id = bundleId;
        SyncExchange(proxy->connection, message, AppReplyHandler, &reply);
        FreeSyncMessage(message);
    }
    return kCodeSuccess;
}
