#include "core/backup_content.h"

#include "core/backup_sms_db.h"
#include "core/jpeg_writer.h"
#include "core/plist_util.h"

#include <openssl/sha.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>

namespace zsim {
namespace {

constexpr uint64_t kSmallSeed = 0x5EEDBAC0FF1CE001ull;
constexpr uint64_t kLargeSeed = 0x5EEDBAC0FF1CE002ull;
constexpr int64_t kEpoch = 1700000000;  // files were last changed in the weeks after this
constexpr uint64_t kLargeBytes = 2ull << 30;
constexpr uint64_t kLargeMinFile = 1024;
constexpr uint64_t kLargeMaxFile = 100ull << 20;

// splitmix64: picks names, sizes and seeds, the same on every run.
class Picker {
public:
    explicit Picker(uint64_t seed) : state_(seed) {}
    uint64_t next() {
        uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    double unit() { return static_cast<double>(next() >> 11) / 9007199254740992.0; }
    // Sizes spread evenly over the orders of magnitude between lo and hi.
    uint64_t logUniform(uint64_t lo, uint64_t hi) {
        return static_cast<uint64_t>(std::exp(std::log(double(lo)) + unit() * (std::log(double(hi)) - std::log(double(lo)))));
    }

private:
    uint64_t state_;
};

std::string format(const char* pattern, unsigned n) {
    char text[160];
    snprintf(text, sizeof text, pattern, n);
    return text;
}

class Builder {
public:
    explicit Builder(uint64_t seed) : pick_(seed) {}

    void addBytes(const std::string& domain, const std::string& path, std::string bytes) {
        BackupItem& item = add(domain, path);
        item.size = bytes.size();
        item.bytes = std::make_shared<const std::string>(std::move(bytes));
    }

    void addGenerated(const std::string& domain, const std::string& path, uint64_t size) {
        BackupItem& item = add(domain, path);
        item.size = size;
        item.seed = pick_.next();
    }

    Picker& pick() { return pick_; }
    void reseed(uint64_t seed) { pick_ = Picker(seed); }
    BackupContent finish() { return std::move(content_); }

private:
    BackupItem& add(const std::string& domain, const std::string& path) {
        addFolders(domain, path);
        BackupItem item;
        item.domain = domain;
        item.relativePath = path;
        item.fileID = backupFileId(domain, path);
        item.modified = kEpoch + static_cast<int64_t>(pick_.next() % (60 * 86400));
        content_.items.push_back(std::move(item));
        ++content_.fileCount;
        return content_.items.back();
    }

    void addFolders(const std::string& domain, const std::string& path) {
        for (size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
            std::string folder = path.substr(0, slash);
            if (!folders_.insert(domain + "-" + folder).second) continue;
            BackupItem item;
            item.domain = domain;
            item.relativePath = folder;
            item.fileID = backupFileId(domain, folder);
            item.directory = true;
            item.modified = kEpoch;
            content_.items.push_back(std::move(item));
        }
    }

    Picker pick_;
    BackupContent content_;
    std::set<std::string> folders_;
};

std::string preferencePlist(Picker& pick, unsigned n) {
    PlistPtr p = adopt(plist_new_dict());
    plist_dict_set_item(p.get(), "SBLastLaunch", plist_new_uint(kEpoch + pick.next() % 86400));
    plist_dict_set_item(p.get(), "Enabled", plist_new_bool(pick.next() & 1));
    plist_dict_set_item(p.get(), "Version", plist_new_uint(n));
    plist_dict_set_item(p.get(), "Name", plist_new_string(format("Setting %u", n).c_str()));
    return toBinary(p.get());
}

// Generated files of several domains, 16 bytes to 48 KiB (some span more
// than one 32 KiB transfer block), and one empty file.
struct Generated {
    const char* domain;
    const char* pattern;
    unsigned count;
};

const Generated kSmallGenerated[] = {
    {"HomeDomain", "Library/Caches/com.apple.Safari/Cache-%04u.dat", 60},
    {"HomeDomain", "Library/Mail/Envelope-%04u.bin", 30},
    {"HomeDomain", "Library/Keyboard/dynamic-text-%u.dat", 6},
    {"MediaDomain", "Media/Recordings/Recording-%04u.bin", 12},
    {"WirelessDomain", "Library/Databases/CellularUsage-%u.dat", 4},
    {"SystemPreferencesDomain", "SystemConfiguration/blob-%u.bin", 6},
    {"AppDomain-com.example.notes", "Documents/Note-%04u.bin", 48},
    {"AppDomain-com.example.notes", "Library/Caches/thumb-%04u.bin", 20},
    {"AppDomain-com.example.maps", "Library/Application Support/Tiles/tile-%04u.bin", 50},
    {"AppDomainGroup-group.com.example.shared", "Library/Shared/item-%04u.bin", 30},
};

void addSmallContent(Builder& b) {
    b.addBytes("HomeDomain", "Library/SMS/sms.db", buildSmsDatabase());
    for (unsigned i = 1; i <= 20; ++i)
        b.addBytes("HomeDomain", format("Library/Preferences/com.example.setting%02u.plist", i),
                   preferencePlist(b.pick(), i));
    // Thumbnails, so that they never take the place of a device's own
    // photos (DCIM/100APPLE/IMG_0001.JPG...), which its backup carries too.
    for (unsigned i = 1; i <= 12; ++i)
        b.addBytes("CameraRollDomain", format("Media/PhotoData/Thumbnails/V2/DCIM/100APPLE/IMG_%04u.JPG/5005.JPG", i),
                   makeMosaicJpeg(160, 120, static_cast<uint32_t>(i * 7919)));
    for (const Generated& g : kSmallGenerated)
        for (unsigned i = 1; i <= g.count; ++i)
            b.addGenerated(g.domain, format(g.pattern, i), b.pick().logUniform(16, 48 << 10));
    b.addGenerated("HomeDomain", "Library/Cookies/Cookies.binarycookies", 0);
}

// Videos of 1 KiB to 100 MiB until the backup holds 2 GiB more.
void addLargeContent(Builder& b) {
    uint64_t total = 0;
    for (unsigned n = 1; total < kLargeBytes; ++n) {
        uint64_t size = std::min(b.pick().logUniform(kLargeMinFile, kLargeMaxFile), kLargeBytes - total);
        b.addGenerated("CameraRollDomain", format("Media/DCIM/1%02uAPPLE/", 1 + n / 100) + format("IMG_%04u.MOV", n),
                       size);
        total += size;
    }
}

BackupContent build(BackupContentKind kind) {
    // The large content starts with the small one, file for file.
    Builder b(kSmallSeed);
    addSmallContent(b);
    if (kind == BackupContentKind::Large) {
        b.reseed(kLargeSeed);
        addLargeContent(b);
    }
    BackupContent content = b.finish();
    for (const BackupItem& item : content.items) content.fileBytes += item.size;
    return content;
}

}  // namespace

std::string backupFileId(const std::string& domain, const std::string& relativePath) {
    const std::string name = domain + "-" + relativePath;
    unsigned char digest[SHA_DIGEST_LENGTH];
    SHA1(reinterpret_cast<const unsigned char*>(name.data()), name.size(), digest);
    static const char kHex[] = "0123456789abcdef";
    std::string id;
    for (unsigned char c : digest) {
        id += kHex[c >> 4];
        id += kHex[c & 15];
    }
    return id;
}

const BackupContent& backupContent(BackupContentKind kind) {
    // Function statics: built on first use, once, even with several devices
    // starting backups together.
    if (kind == BackupContentKind::Large) {
        static const BackupContent large = build(BackupContentKind::Large);
        return large;
    }
    static const BackupContent small = build(BackupContentKind::Small);
    return small;
}

}  // namespace zsim
