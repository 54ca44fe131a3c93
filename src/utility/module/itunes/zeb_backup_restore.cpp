// Command 1601, and the last step of an erase: a backup folder put back onto
// the device. The host offers nothing by itself; it hands over exactly the
// files the device asks for.
#include "zeb_backup_folder_files.h"
#include "zeb_backup_templates.h"
#include "zeb_module_itunes.h"
#include "zeb_plist_bridge.h"
#include "zeb_local_file.h"
#include "zeb_restore_download.h"
#include "zeb_restore_messages.h"
#include "zeb_sync_frames.h"

#include <glog/logging.h>

namespace {

constexpr int32_t kCodeManifestUnreadable = 42;
constexpr int32_t kCodeRestoreEnded = 45;

const char kTaskErrorUnknown[] = "Task error Unknown.";

// Whether the folder's Manifest.plist says the backup is encrypted. An empty
// file is a backup that is not; false when there is no readable list.
bool readEncrypted(const std::string& folder, bool& encrypted) {
    encrypted = false;
    std::string bytes;
    if (!zeb::readRegularFile(folder + "Manifest.plist", backup::kManifestPlistLimit, bytes)) return false;
    if (bytes.empty()) return true;
    PlistVariant manifest;
    if (!DecodeFrame(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), manifest)) return false;
    const PlistVariant* top = backup::frameMessage(manifest);
    if (!top) return false;
    const PlistVariant* flag = top->tag() == VariantTag::Dictionary ? top->Find("IsEncrypted") : nullptr;
    encrypted = flag && flag->tag() == VariantTag::Bool && flag->boolean();
    return true;
}

// "path", "sourceDeviceId" and "password", looked for in this order.
bool readKeys(const rapidjson::Value& request, std::string (&values)[3]) {
    static const char* const kKeys[] = {"path", "sourceDeviceId", "password"};
    if (!request.IsObject()) return false;
    for (int i = 0; i < 3; ++i) {
        auto found = request.FindMember(kKeys[i]);
        if (found == request.MemberEnd() || !found->value.IsString()) return false;
        values[i].assign(found->value.GetString(), found->value.GetStringLength());
    }
    return true;
}

}  // namespace

TaskResult ZEBModuleiTunes::restoreBackup(ZEBDevice& device, const rapidjson::Value& request,
                                          const std::function<void(int64_t)>& progress) {
    std::string keys[3];
    if (!readKeys(request, keys)) return {kCodeBadJson, "ParameterError"};
    std::string& folder = keys[0];
    // The folder is joined to the device's file names; a parent that left
    // the separator off still means the folder.
    if (!folder.empty() && folder.back() != '/') folder += '/';
    bool encrypted = false;
    if (!readEncrypted(folder, encrypted)) return {kCodeManifestUnreadable, "BackupManifestPlistError"};

    ServicePtr service = zeb::StartBackupService(device);
    if (!service) return {static_cast<int32_t>(kCodeBackupServiceFailed), "MonitorDeviceOpenAFCServiceFail"};
    BackupSession session;
    session.device_id = device.udid;
    session.device = &device;
    session.source_id = keys[1];
    session.connection = service->connection;
    if (!backup::openConversation(session, backup::restoreRequestText(keys[1], device.udid, encrypted, keys[2])))
        return {kCodeConversationBroke, kTaskErrorUnknown};

    backup::ProgressStep step{progress};
    for (;;) {
        session.has_error = false;
        if (!backup::receiveMessage(session, RestoreMessageHandler)) return {kCodeConversationBroke, kTaskErrorUnknown};
        step(session);
        if (session.kind == kBackupDisconnect) return {kCodeRestoreEnded, {}};
        if (session.kind == kBackupProcessMessage && session.has_error) {
            LOG(INFO) << "error: " << session.error_code << " description: " << session.error_description;
            return {session.error_code, session.error_description};
        }
        backup::answerDownloads(session, folder);
    }
}
