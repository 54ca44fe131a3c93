// The raw stream of files that follows "DLMessageUploadFiles": per file a
// device name and a path, each a 4-byte big-endian length and text, then
// blocks of a 4-byte length (counting the code byte), a code (12 data,
// 11 error text, 0 end of the file) and the data.
#pragma once

#include "zeb_backup_session.h"

#include <string>
#include <utility>
#include <vector>

inline constexpr int32_t kCodeDeviceDisconnected = 45;
inline constexpr int32_t kCodeFileNotCame = 46;

namespace backup {

// Writes every file below the session's root; 0, or 45 when the device went
// or the stream broke in the middle of a file (which is then removed).
int32_t receiveUploadedFiles(BackupSession& session);

// Writes only the files whose host path holds one of `needles`, and reads
// the others through. (code, found); `written` gets the last file written.
std::pair<int32_t, bool> receiveSelectedFiles(BackupSession& session, const std::vector<std::string>& needles,
                                              std::string* written);

}  // namespace backup
