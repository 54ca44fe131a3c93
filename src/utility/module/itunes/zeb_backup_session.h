// The host side of the device-driven backup conversation on
// "com.apple.mobilebackup2": one BackupSession per conversation, the
// handlers that read the device's messages, and the answers to them.
#pragma once

#include "zeb_device.h"
#include "zeb_plist_variant.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

enum BackupMessageKind : int32_t {
    kBackupNone = 0,
    kBackupDownloadFiles = 1,
    kBackupContentsOfDirectory = 2,
    kBackupGetFreeDiskSpace = 3,
    kBackupCreateDirectory = 4,
    kBackupMoveItems = 5,
    kBackupRemoveFiles = 7,
    kBackupDisconnect = 8,
    kBackupCopyItem = 9,
    kBackupRemoveItems = 10,
    kBackupProcessMessage = 11,
    kBackupUploadFiles = 12,
};

struct DownloadRecord {
    std::string device_path;
    std::string local_path;
};

struct BackupSession {
    int32_t kind = kBackupNone;
    std::string device_id;
    AMDServiceConnectionRef connection = nullptr;
    ZEBDevice* device = nullptr;  // its state word tells a device that has gone
    std::string requested_file;
    std::filesystem::path root_dir;  // with its trailing separator
    double progress = 0.0;
    std::string source_id;
    std::vector<DownloadRecord> downloads;
    bool has_error = false;
    int32_t error_code = 0;
    std::string error_description;
    std::string folder_suffix;
};

// Waits for "DLMessageDeviceReady" anywhere in a message, in any case.
void BackupReadyHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result);
// Reads one frame and ignores it.
void BackupIgnoreHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result);
// The backup dispatcher: element 0 names the message; anything it does not
// know is dropped and the next frame read. Context: BackupSession.
void BackupMessageHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result);

namespace backup {

// The message kind of a name, or kBackupNone.
int32_t messageKind(const std::string& name);

// Applies one decoded message to the session (the actions of the backup
// dispatcher, without answers). Public for tests.
void applyBackupMessage(BackupSession& session, const PlistVariant& message);

// "DLMessageProcessMessage" read from element `from` on (progress, error).
void walkProcessMessage(BackupSession& session, const PlistVariant& message, size_t from);

// The message inside a decoded frame, or null.
const PlistVariant* frameMessage(const PlistVariant& frame);

// Where a device path lands on the host: below root_dir, with the folder
// suffix behind the device id. Empty for a path that is absolute or climbs
// out with "..": the device never gets to write outside the backup folder.
std::filesystem::path placeDevicePath(const BackupSession& session, const std::string& devicePath);

// Hundredths of a percent of the session's progress, 0..10000.
int64_t progressHundredths(const BackupSession& session);

}  // namespace backup
