// The device's backup encryption setting and password, shared by the backup
// service (which changes them) and lockdown (which shows WillEncrypt in the
// "com.apple.mobile.backup" domain). The profile's WillEncrypt is the
// starting value; from the first change on both live in the state folder
// (backup.plist), the password only as a salted hash.
#pragma once

#include "core/backup_keybag.h"

#include <plist/plist.h>

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace zsim {

struct PasswordChangeResult {
    uint64_t errorCode = 0;  // 0: done
    std::string description;
};

class BackupSettings {
public:
    // `stateFile` empty: nothing is persisted.
    BackupSettings(std::filesystem::path stateFile, plist_t profile);

    bool willEncrypt();
    // The password's salt and digest, for a backup's key bag; nullopt when
    // encryption is off or no password is known.
    std::optional<PasswordDigest> passwordDigest();
    // What ChangePassword asks: a new password alone turns encryption on,
    // the old one alone turns it off, both change it.
    PasswordChangeResult changePassword(const std::optional<std::string>& oldPassword,
                                        const std::optional<std::string>& newPassword);

private:
    bool matches(const std::string& password) const;  // caller holds mutex_
    void setPassword(const std::optional<std::string>& password);  // caller holds mutex_
    void save();  // caller holds mutex_

    std::filesystem::path stateFile_;
    std::mutex mutex_;
    bool willEncrypt_ = false;
    std::vector<unsigned char> salt_;
    std::vector<unsigned char> hash_;  // empty: no password known (the profile turned encryption on)
};

// The settings of one device, made on first use; `stateDir` is the device's
// own folder in the state folder (empty: the device persists nothing).
BackupSettings& backupSettingsFor(const std::filesystem::path& stateDir, const std::string& udid, plist_t profile);

}  // namespace zsim
