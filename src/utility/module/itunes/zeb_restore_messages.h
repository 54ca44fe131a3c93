// What a restore reads from the device and what it asks the device for:
// the request that starts it, and the small dispatcher that picks out the
// three messages a restore acts on.
#pragma once

#include "zeb_backup_session.h"

#include <string>

// Looks at every element of the message for "DLMessageDownloadFiles",
// "DLMessageDisconnect" or "DLMessageProcessMessage"; a message with none of
// them is dropped and the next read. Context: BackupSession.
void RestoreMessageHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result);

namespace backup {

// Applies one decoded message to the session: the kind, the progress, the
// files the device asks for, an error dictionary. False when the message
// names none of the three. Public for tests.
bool applyRestoreMessage(BackupSession& session, const PlistVariant& message);

// The "Restore" request: the device restores the backup of `source` onto
// itself (`target`), the host keeping its copy; the password travels only
// for an encrypted backup.
std::string restoreRequestText(const std::string& source, const std::string& target, bool encrypted,
                               const std::string& password);

}  // namespace backup
