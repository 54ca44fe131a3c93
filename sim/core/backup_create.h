// A backup as the device drives it, after the host's "Backup" request:
//   DLMessageDownloadFiles   the last backup's Status.plist and Manifest.plist
//   DLMessageGetFreeDiskSpace
//   DLMessageCreateDirectory U/Snapshot, then U/Snapshot/xx and U/xx for
//                            each two-hex-digit folder the files use
//   DLMessageUploadFiles     pages of files into U/Snapshot/xx/<fileID>,
//                            Manifest.db and Manifest.plist last
//   DLMessageMoveItems       everything from U/Snapshot into place
//   DLMessageRemoveItems     U/Snapshot
//   DLMessageUploadFiles     U/Status.plist (SnapshotState finished), 100%
//   DLMessageProcessMessage  {ErrorCode 0}, then DLMessageDisconnect
// (U: the target UDID). Each waits for the host's status answer. Every
// backup sends everything: an incremental one differs only in
// IsFullBackup. The profile's faults end it early with an error response
// or a vanished device.
#pragma once

#include "core/backup_host.h"

namespace zsim {

// Returns once the conversation is over (the connection is then closed).
void runBackup(BackupHost& host, plist_t request);

}  // namespace zsim
