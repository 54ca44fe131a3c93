// The snapshot: a backup reduced to the files the caller names, into the
// work folder, for reading one of the device's databases on the computer.
#include "zeb_backup_templates.h"
#include "zeb_backup_upload.h"
#include "zeb_module_itunes.h"
#include "zeb_paths.h"

#include <system_error>

namespace {

// The name every backup gives the message database (and its -shm, -wal).
const char kMessageDatabase[] = "3d0d7e5fb2ce288813306e4d4636395e047a3d28";

// True when the task stands cancelled; runs its cancel action once.
bool cancelled(ZEBDevice& device, DhTask* task) {
    if (!task) return false;
    std::lock_guard<std::mutex> hold(device.taskTable.lock);
    if (task->state != kTaskCancelled) return false;
    if (task->cancelAction) {
        task->cancelAction(task->cancelData);
        task->cancelAction = nullptr;
    }
    return true;
}

}  // namespace

TaskResult ZEBModuleiTunes::snapshotBackup(ZEBDevice& device, DhTask* task, const std::vector<std::string>& needles) {
    BackupSession session;
    session.device_id = device.udid;
    session.device = &device;
    session.root_dir = zeb::workSubFolder("Backup0") / "";

    ServicePtr service = zeb::StartBackupService(device);
    if (!service) return {static_cast<int32_t>(kCodeBackupServiceFailed), "DeviceOpenAFCServiceFail"};
    session.connection = service->connection;
    if (!backup::openConversation(session, backup::fillText(backup::kBackupRequest, device.udid)))
        return {kCodeFileNotCame, {}};

    bool found = false;
    backup::BackupLoopRules rules;
    rules.reportRealFreeSpace = false;
    rules.cancelled = [&] { return cancelled(device, task); };
    rules.receiveUpload = [&](BackupSession& current) -> int32_t {
        std::string written;
        auto [code, came] = backup::receiveSelectedFiles(current, needles, &written);
        if (code != 0) return code;
        if (came) {
            found = true;
            const size_t name = written.find(kMessageDatabase);
            device.staged_sms_db = name == std::string::npos ? written : written.substr(0, name + sizeof kMessageDatabase - 1);
            return -1;  // the file is here: no need to hear the rest
        }
        return 0;
    };
    bool clean = false;
    const TaskResult result = backup::runBackupLoop(session, rules, clean);
    if (found) return {0, {}};
    switch (result.code) {
        case 6:  // cancelled
        case 2:  // the conversation broke
            return result;
        case kCodeDeviceDisconnected:
            // A goodbye short of 100 percent, or the device gone; a broken
            // upload leaves the file not come.
            return {session.kind == kBackupUploadFiles ? kCodeFileNotCame : kCodeDeviceDisconnected, {}};
        case 0: return {kCodeFileNotCame, {}};  // a goodbye at 100 percent
        default: return session.has_error ? result : TaskResult{kCodeFileNotCame, {}};
    }
}
