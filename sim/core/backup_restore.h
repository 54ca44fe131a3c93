// A restore as the device drives it, after the host's "Restore" request:
// DLMessageDownloadFiles for the source backup's Status.plist,
// Manifest.plist and Manifest.db, then for every file Manifest.db lists
// (S/xx/<fileID>, in pages), each answered by the host's raw stream and a
// status; then DLMessageProcessMessage {ErrorCode 0} and
// DLMessageDisconnect. Once every file came whole the backup is applied to
// the device (backup_apply.h); a restore that fails applies nothing.
#pragma once

#include "core/backup_host.h"

namespace zsim {

void runRestore(BackupHost& host, plist_t request);

}  // namespace zsim
