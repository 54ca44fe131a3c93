#include "core/backup_settings.h"

#include "core/plist_util.h"

#include <openssl/rand.h>

#include <map>
#include <memory>

namespace zsim {
namespace fs = std::filesystem;

namespace {

std::vector<unsigned char> bytesOf(plist_t dict, const char* key) {
    auto data = dictData(dict, key);
    return data ? std::vector<unsigned char>(data->begin(), data->end()) : std::vector<unsigned char>();
}

}  // namespace

BackupSettings::BackupSettings(fs::path stateFile, plist_t profile) : stateFile_(std::move(stateFile)) {
    willEncrypt_ = dictBool(dictDict(dictDict(profile, "Domains"), "com.apple.mobile.backup"), "WillEncrypt")
                       .value_or(false);
    PlistPtr saved = stateFile_.empty() ? nullptr : readPlistFile(stateFile_);
    if (auto encrypt = dictBool(saved.get(), "WillEncrypt")) {
        willEncrypt_ = *encrypt;
        salt_ = bytesOf(saved.get(), "PasswordSalt");
        hash_ = bytesOf(saved.get(), "PasswordHash");
    }
}

bool BackupSettings::willEncrypt() {
    std::lock_guard<std::mutex> lock(mutex_);
    return willEncrypt_;
}

std::optional<PasswordDigest> BackupSettings::passwordDigest() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!willEncrypt_ || hash_.empty()) return std::nullopt;
    return PasswordDigest{kPasswordRounds, salt_, hash_};
}

bool BackupSettings::matches(const std::string& password) const {
    // Encryption the profile turned on has no password the device knows of.
    return hash_.empty() || derivePasswordDigest(password, salt_) == hash_;
}

void BackupSettings::setPassword(const std::optional<std::string>& password) {
    salt_.clear();
    hash_.clear();
    willEncrypt_ = password.has_value();
    if (!password) return;
    salt_.resize(16);
    RAND_bytes(salt_.data(), static_cast<int>(salt_.size()));
    hash_ = derivePasswordDigest(*password, salt_);
}

PasswordChangeResult BackupSettings::changePassword(const std::optional<std::string>& oldPassword,
                                                    const std::optional<std::string>& newPassword) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!oldPassword && !newPassword) return {1, "No password was given (MBErrorDomain/1)"};
    if (!oldPassword) {
        if (willEncrypt_) return {1, "Backup encryption is already on (MBErrorDomain/1)"};
    } else {
        if (!willEncrypt_) return {1, "Backup encryption is not on (MBErrorDomain/1)"};
        if (!matches(*oldPassword)) return {207, "Invalid password (MBErrorDomain/207)"};
    }
    setPassword(newPassword);
    save();
    return {};
}

void BackupSettings::save() {
    if (stateFile_.empty()) return;
    PlistPtr state = adopt(plist_new_dict());
    plist_dict_set_item(state.get(), "WillEncrypt", plist_new_bool(willEncrypt_));
    if (!hash_.empty()) {
        plist_dict_set_item(state.get(), "PasswordSalt",
                            plist_new_data(reinterpret_cast<const char*>(salt_.data()), salt_.size()));
        plist_dict_set_item(state.get(), "PasswordHash",
                            plist_new_data(reinterpret_cast<const char*>(hash_.data()), hash_.size()));
    }
    writePlistFile(stateFile_, state.get());
}

BackupSettings& backupSettingsFor(const fs::path& stateDir, const std::string& udid, plist_t profile) {
    static std::mutex mutex;
    // Kept for the simulator's life, like the device's other memory.
    static std::map<std::string, std::unique_ptr<BackupSettings>> settings;
    const std::string key = stateDir.empty() ? "udid:" + udid : stateDir.string();
    std::lock_guard<std::mutex> lock(mutex);
    auto& slot = settings[key];
    if (!slot) slot = std::make_unique<BackupSettings>(stateDir.empty() ? fs::path() : stateDir / "backup.plist", profile);
    return *slot;
}

}  // namespace zsim
