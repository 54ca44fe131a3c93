// The simulator's backup key bag, Manifest.plist's BackupKeyBag: what a
// restore needs to check the backup's password, and nothing more (files
// stay in clear, so there are no class keys to wrap). Records of a
// four-letter tag, a big-endian 32-bit length and the value:
//   VERS  4 bytes, 1
//   TYPE  4 bytes, 1 (backup)
//   ITER  4 bytes, PBKDF2 rounds
//   SALT  the salt (16 bytes)
//   DGST  PBKDF2-HMAC-SHA256 of the password with that salt (32 bytes)
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zsim {

constexpr uint32_t kPasswordRounds = 10000;

struct PasswordDigest {
    uint32_t rounds = kPasswordRounds;
    std::vector<unsigned char> salt;
    std::vector<unsigned char> digest;
};

std::vector<unsigned char> derivePasswordDigest(const std::string& password, const std::vector<unsigned char>& salt,
                                                uint32_t rounds = kPasswordRounds);

std::string encodeKeyBag(const PasswordDigest& digest);
// Nullopt when the bytes are not a key bag of this shape.
std::optional<PasswordDigest> decodeKeyBag(const std::string& bytes);

bool keyBagAccepts(const PasswordDigest& keyBag, const std::string& password);

}  // namespace zsim
