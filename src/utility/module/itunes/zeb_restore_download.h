// The host's side of "DLMessageDownloadFiles" in a restore: each file the
// device asked for goes out raw, as its path and then data blocks.
#pragma once

#include "zeb_backup_session.h"

#include <string>

namespace backup {

// Sends one file: the device's path, then the file in blocks of at most
// 32 KiB (code 12) and the end block; a file that cannot be read gets an
// error block (code 6, the reason) instead of data and end. `base` ends
// with a separator. 0, or -1 when the link failed or an error block went
// out: the rest of the batch is then not sent.
int sendDownloadFile(AMDServiceConnectionRef connection, const std::string& base, const DownloadRecord& record);

// Every requested file in order, then the end of the batch and the status.
void answerDownloads(BackupSession& session, const std::string& base);

}  // namespace backup
