// The property lists a backup carries besides its files: Status.plist (the
// state of the last backup) and Manifest.plist (the device and its apps at
// backup time), and the summary the device gives a host that asks for
// "Info" about a backup it keeps.
#pragma once

#include "core/plist_util.h"
#include "service.h"

#include <optional>
#include <string>

namespace zsim {

PlistPtr makeStatusPlist(bool fullBackup);
// The simulator stores files in clear: an encrypted backup is marked as
// one (IsEncrypted) and, when the password is known, carries a key bag to
// check it against (backup_keybag.h), without wrapped keys.
PlistPtr makeManifestPlist(const ServiceContext& ctx, bool encrypted, const std::optional<std::string>& keyBag);

// True when a Status.plist says its backup was completed.
bool isFinishedBackup(plist_t status);

// One line for the backup's state and one for the device it came from.
std::string describeBackup(plist_t status, plist_t manifest);

}  // namespace zsim
