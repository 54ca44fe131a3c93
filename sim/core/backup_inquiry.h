// "Info" and "List": the device reads the backup the host keeps for the
// source UDID (Status.plist and Manifest.plist, or Manifest.db) through
// DLMessageDownloadFiles and answers with a Content text: a summary of the
// backup and its device, or its files as CSV (Domain,Path,Size). A backup
// the host cannot give gets error 205, as on a real device.
#pragma once

#include "core/backup_host.h"

namespace zsim {

// False when the connection is gone.
bool answerInfo(BackupHost& host, plist_t request);
bool answerList(BackupHost& host, plist_t request);

}  // namespace zsim
