#include "core/profile.h"

#include "core/plist_util.h"

#include <openssl/sha.h>

#include <cctype>
#include <fstream>
#include <iterator>

namespace zsim {
namespace fs = std::filesystem;

std::optional<Profile> loadProfile(const fs::path& dir, std::string& error) {
    std::ifstream in(dir / "profile.plist", std::ios::binary);
    if (!in) {
        error = "no profile.plist in " + dir.string();
        return std::nullopt;
    }
    Profile p;
    p.source = dir.string();
    p.plistText.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    PlistPtr parsed = parsePlist(p.plistText.data(), p.plistText.size());
    if (!parsed || plist_get_node_type(parsed.get()) != PLIST_DICT) {
        error = dir.string() + "/profile.plist is not a property-list dictionary";
        return std::nullopt;
    }
    if (!dictString(dictDict(parsed.get(), "Values"), "UniqueDeviceID")) {
        error = dir.string() + "/profile.plist has no Values.UniqueDeviceID";
        return std::nullopt;
    }
    if (fs::is_directory(dir / "media")) p.mediaDir = dir / "media";
    return p;
}

bool isSafeUdid(const std::string& udid) {
    if (udid.empty() || udid.size() > 64) return false;
    for (char c : udid)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-') return false;
    return true;
}

std::string deriveUdid(const std::string& base, unsigned n) {
    if (n == 0) return base;
    std::string seed = base + "#" + std::to_string(n);
    unsigned char digest[SHA_DIGEST_LENGTH];
    SHA1(reinterpret_cast<const unsigned char*>(seed.data()), seed.size(), digest);
    std::string hex;
    static const char* kLower = "0123456789abcdef";
    static const char* kUpper = "0123456789ABCDEF";
    bool modern = base.size() == 25 && base[8] == '-';
    for (unsigned char b : digest) {
        hex.push_back((modern ? kUpper : kLower)[b >> 4]);
        hex.push_back((modern ? kUpper : kLower)[b & 15]);
    }
    // Newer devices: keep the chip part, vary the 16-digit part.
    if (modern) return base.substr(0, 9) + hex.substr(0, 16);
    return hex;
}

}  // namespace zsim
