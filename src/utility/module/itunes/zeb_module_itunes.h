// Backups of a device and the questions around them.
//
//   1600  back the device up into "path" (empty: the default backup folder):
//         an event {"BackupDir": folder}, progress events (stage 1, code in
//         hundredths of a percent), then the final event {"error": text}
//         whose code is 0, the device's error code, 2 (the conversation
//         broke, or the folder cannot be made), 12 (the service would not
//         open) or 45 (the device went).
//   1601  restore the backup folder "path" (made from "sourceDeviceId";
//         "password" is passed on for an encrypted backup) onto the device:
//         progress events (stage 1, hundredths of a percent), then the final
//         event: 45 when the device said goodbye, the device's own code when
//         it answered with one (0 for done), 21 for a missing key, 42 without
//         a readable Manifest.plist, 12, or 2 when the conversation broke.
//   1602  list the backups in "paths": stage 0 events per backup found,
//         then stage 1 events with their sizes; 21 without "paths".
//   1603  0 when the device is tied to a find-my-device account, else 1.
//   1604  0 when the device encrypts its backups, else 1.
//   1605  set the backup password ("password"; "oldPassword" when one is
//         set already; an empty password turns encryption off): 0 when the
//         device encrypts afterwards, else 1.
//   1606  0 when the desktop's media program runs (never here), else 1.
//   1607  stop that program (nothing to stop here): 0.
//
// Every final event carries {"error": text}; 7 when no device.
#pragma once

#include "zeb_backup_conversation.h"
#include "zeb_module.h"

#include <functional>
#include <string>
#include <vector>

inline constexpr int64_t kCodeBackupServiceFailed = 12;

class ZEBModuleiTunes : public ZEBModule {
public:
    int execute(IPCPacket1* packet) override;

    // A reduced backup that keeps only files whose host path holds one of
    // `needles`, into the work folder; code 0 when one came, and then the
    // device's database path names it. 46 when none came.
    TaskResult snapshotBackup(ZEBDevice& device, DhTask* task, const std::vector<std::string>& needles);

    // Restores the backup the request names; `progress` gets hundredths of a
    // percent as the device's figure grows.
    TaskResult restoreBackup(ZEBDevice& device, const rapidjson::Value& request,
                             const std::function<void(int64_t)>& progress);

private:
    TaskResult backup(CommandContext& context, const rapidjson::Document& request);
    int64_t listBackups(CommandContext& context, const rapidjson::Document& request);
    int64_t changePassword(CommandContext& context, const rapidjson::Document& request);
};

namespace zeb {
// "com.apple.mobilebackup2" with the options every conversation opens it
// with, or null.
ServicePtr StartBackupService(ZEBDevice& device);
// A lockdown flag of the device: "IsAssociated" of "com.apple.fmip",
// "WillEncrypt" of "com.apple.mobile.backup".
bool DeviceFlag(ZEBDevice& device, const char* key, const char* domain);
}  // namespace zeb
