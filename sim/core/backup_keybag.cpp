#include "core/backup_keybag.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

namespace zsim {
namespace {

constexpr uint32_t kVersion = 1;
constexpr uint32_t kTypeBackup = 1;
// More rounds than this would only make a bad key bag slow to reject.
constexpr uint32_t kMaxRounds = 10000000;

void putRecord(std::string& out, const char* tag, const std::string& value) {
    out.append(tag, 4);
    const uint32_t n = static_cast<uint32_t>(value.size());
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<char>(n >> shift));
    out += value;
}

std::string word(uint32_t v) {
    return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
}

uint32_t readWord(const std::string& bytes, size_t at) {
    uint32_t v = 0;
    for (size_t i = 0; i < 4; ++i) v = v << 8 | static_cast<unsigned char>(bytes[at + i]);
    return v;
}

}  // namespace

std::vector<unsigned char> derivePasswordDigest(const std::string& password, const std::vector<unsigned char>& salt,
                                                uint32_t rounds) {
    std::vector<unsigned char> out(32);
    PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), salt.data(), static_cast<int>(salt.size()),
                      static_cast<int>(rounds), EVP_sha256(), static_cast<int>(out.size()), out.data());
    return out;
}

std::string encodeKeyBag(const PasswordDigest& digest) {
    std::string out;
    putRecord(out, "VERS", word(kVersion));
    putRecord(out, "TYPE", word(kTypeBackup));
    putRecord(out, "ITER", word(digest.rounds));
    putRecord(out, "SALT", std::string(digest.salt.begin(), digest.salt.end()));
    putRecord(out, "DGST", std::string(digest.digest.begin(), digest.digest.end()));
    return out;
}

std::optional<PasswordDigest> decodeKeyBag(const std::string& bytes) {
    PasswordDigest bag;
    bag.rounds = 0;
    for (size_t at = 0; at < bytes.size();) {
        if (bytes.size() - at < 8) return std::nullopt;
        const std::string tag = bytes.substr(at, 4);
        const uint32_t n = readWord(bytes, at + 4);
        at += 8;
        if (bytes.size() - at < n) return std::nullopt;
        const std::string value = bytes.substr(at, n);
        at += n;
        if (tag == "ITER" && n == 4) bag.rounds = readWord(value, 0);
        if (tag == "SALT") bag.salt.assign(value.begin(), value.end());
        if (tag == "DGST") bag.digest.assign(value.begin(), value.end());
    }
    if (bag.rounds == 0 || bag.rounds > kMaxRounds || bag.salt.empty() || bag.digest.size() != 32) return std::nullopt;
    return bag;
}

bool keyBagAccepts(const PasswordDigest& keyBag, const std::string& password) {
    const auto digest = derivePasswordDigest(password, keyBag.salt, keyBag.rounds);
    return CRYPTO_memcmp(digest.data(), keyBag.digest.data(), digest.size()) == 0;
}

}  // namespace zsim
