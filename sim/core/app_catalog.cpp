#include "core/app_catalog.h"

#include "core/app_hash.h"

#include <cstdio>
#include <cstdlib>
#include <functional>

namespace zsim {
namespace {

constexpr const char* kDefaultAppleId = "buyer@example.com";

std::string uuidFrom(const std::string& seed) {
    const uint64_t a = stableHash(seed), b = stableHash(seed + "/2");
    char text[40];
    snprintf(text, sizeof text, "%08X-%04X-4%03X-%04X-%012llX", static_cast<unsigned>(a >> 32),
             static_cast<unsigned>((a >> 16) & 0xFFFF), static_cast<unsigned>(a & 0xFFF),
             static_cast<unsigned>(0x8000 | ((b >> 48) & 0x3FFF)),
             static_cast<unsigned long long>(b & 0xFFFFFFFFFFFFull));
    return text;
}

void setString(plist_t dict, const char* key, const std::string& value) {
    plist_dict_set_item(dict, key, plist_new_string(value.c_str()));
}

void setUInt(plist_t dict, const char* key, uint64_t value) { plist_dict_set_item(dict, key, plist_new_uint(value)); }

// Copies `key` from `from` when present there, else sets `fallback`.
void copyOr(plist_t into, plist_t from, const char* key, const std::string& fallback) {
    setString(into, key, dictString(from, key).value_or(fallback));
}

std::string lastComponent(const std::string& id) {
    auto dot = id.rfind('.');
    std::string last = dot == std::string::npos ? id : id.substr(dot + 1);
    if (!last.empty()) last[0] = static_cast<char>(toupper(static_cast<unsigned char>(last[0])));
    return last.empty() ? "App" : last;
}

std::string executableFor(const std::string& displayName, const std::string& id) {
    std::string out;
    for (char c : displayName)
        if (isalnum(static_cast<unsigned char>(c))) out.push_back(c);
    return out.empty() ? lastComponent(id) : out;
}

unsigned majorVersion(plist_t profile) {
    auto v = dictString(dictDict(profile, "Values"), "ProductVersion").value_or("17.0");
    return static_cast<unsigned>(atoi(v.c_str()));
}

// Where the bundle and the data container live: one folder per app before
// iOS 8, separate bundle and data containers since.
void setLocations(plist_t app, const std::string& id, const std::string& executable, unsigned iosMajor) {
    const std::string bundleUuid = uuidFrom(id + "#bundle");
    if (iosMajor < 8) {
        setString(app, "Path", "/private/var/mobile/Applications/" + bundleUuid + "/" + executable + ".app");
        setString(app, "Container", "/private/var/mobile/Applications/" + bundleUuid);
    } else {
        setString(app, "Path", "/private/var/containers/Bundle/Application/" + bundleUuid + "/" + executable + ".app");
        setString(app, "Container", "/private/var/mobile/Containers/Data/Application/" + uuidFrom(id + "#data"));
    }
}

std::string releaseDateFor(const std::string& id) {
    const uint64_t h = stableHash(id + "#released");
    char text[32];
    snprintf(text, sizeof text, "%04u-%02u-%02uT07:00:00Z", static_cast<unsigned>(2014 + h % 10),
             static_cast<unsigned>(1 + (h >> 8) % 12), static_cast<unsigned>(1 + (h >> 16) % 28));
    return text;
}

// The store's iTunesMetadata.plist for an app from the App Store: what the
// store would have written, with the profile's "Store" keys on top.
std::string storeMetadata(plist_t app, plist_t store, const std::string& appleId) {
    const std::string id = dictString(app, "CFBundleIdentifier").value_or("");
    const std::string name = dictString(app, "CFBundleDisplayName").value_or(id);
    const uint64_t h = stableHash(id);
    // Values derived from others (copyright, purchase date) follow the
    // profile's own artist and release date.
    const std::string artist = dictString(store, "artistName").value_or(name + " Developers");
    PlistPtr m = adopt(plist_new_dict());
    setString(m.get(), "artistName", artist);
    setUInt(m.get(), "artistId", 280000000 + h % 100000000);
    setUInt(m.get(), "itemId", 300000000 + (h >> 20) % 1400000000);
    setString(m.get(), "itemName", name);
    setString(m.get(), "bundleDisplayName", name);
    setString(m.get(), "bundleShortVersionString", dictString(app, "CFBundleShortVersionString").value_or("1.0"));
    setString(m.get(), "bundleVersion", dictString(app, "CFBundleVersion").value_or("1"));
    setString(m.get(), "softwareVersionBundleId", id);
    setString(m.get(), "kind", "software");
    setString(m.get(), "genre", "Utilities");
    setUInt(m.get(), "genreId", 6002);
    setUInt(m.get(), "price", 0);
    setString(m.get(), "priceDisplay", "Free");
    const std::string released = dictString(store, "releaseDate").value_or(releaseDateFor(id));
    setString(m.get(), "releaseDate", released);
    setString(m.get(), "copyright", "\xC2\xA9 " + released.substr(0, 4) + " " + artist);
    char icon[160];
    snprintf(icon, sizeof icon, "https://is1-ssl.mzstatic.com/image/thumb/Purple/v4/%02x/%02x/%016llx/AppIcon.png/57x57bb.png",
             static_cast<unsigned>(h & 0xFF), static_cast<unsigned>((h >> 8) & 0xFF),
             static_cast<unsigned long long>(h));
    setString(m.get(), "softwareIcon57x57URL", icon);
    setString(m.get(), "appleId", appleId);
    setString(m.get(), "fileExtension", ".app");
    setString(m.get(), "sourceApp", "com.apple.AppStore");
    setUInt(m.get(), "s", 143441);
    setUInt(m.get(), "drmVersionNumber", 0);
    setUInt(m.get(), "versionRestrictions", 16843008);
    plist_t devices = plist_new_array();
    for (uint64_t d : {2, 4, 9}) plist_array_append_item(devices, plist_new_uint(d));
    plist_dict_set_item(m.get(), "softwareSupportedDeviceIds", devices);
    plist_t rating = plist_new_dict();
    setString(rating, "label", "4+");
    setUInt(rating, "rank", 100);
    setString(rating, "system", "itunes-apps");
    setString(rating, "content", "");
    plist_dict_set_item(m.get(), "rating", rating);

    const std::string purchased = released.substr(0, 8) + "28T18:22:10Z";
    plist_t account = plist_new_dict();
    setString(account, "AppleID", appleId);
    setUInt(account, "DSPersonID", 1000000 + stableHash(appleId) % 9000000);
    setUInt(account, "AccountKind", 0);
    setString(account, "CreditDisplayString", "");
    plist_t download = plist_new_dict();
    plist_dict_set_item(download, "accountInfo", account);
    setString(download, "purchaseDate", purchased);
    plist_dict_set_item(m.get(), "com.apple.iTunesStore.downloadInfo", download);
    setString(m.get(), "purchaseDate", purchased);

    if (store && plist_get_node_type(store) == PLIST_DICT) mergeDict(m.get(), store);
    return toXml(m.get());
}

std::string sinfFor(const std::string& id) {
    // The store's DRM container is opaque to every host; its bytes only
    // need to be stable per app.
    std::string sinf("\x00\x00\x04\x00sinf", 8);
    for (int i = 0; i < 32; ++i) sinf.push_back(static_cast<char>(stableHash(id + std::to_string(i)) & 0xFF));
    return sinf;
}

void setData(plist_t dict, const char* key, const std::string& bytes) {
    plist_dict_set_item(dict, key, plist_new_data(bytes.data(), bytes.size()));
}

PlistPtr userApp(plist_t entry, const std::string& appleId, unsigned iosMajor) {
    const std::string id = dictString(entry, "CFBundleIdentifier").value_or("");
    if (id.empty()) return nullptr;
    const uint64_t h = stableHash(id + "#size");
    PlistPtr app = adopt(plist_new_dict());
    setString(app.get(), "ApplicationType", "User");
    setString(app.get(), "CFBundleIdentifier", id);
    const std::string display = dictString(entry, "CFBundleDisplayName").value_or(lastComponent(id));
    setString(app.get(), "CFBundleDisplayName", display);
    const std::string executable = dictString(entry, "CFBundleExecutable").value_or(executableFor(display, id));
    setString(app.get(), "CFBundleExecutable", executable);
    copyOr(app.get(), entry, "CFBundleName", executable);
    const std::string shortVersion = dictString(entry, "CFBundleShortVersionString").value_or("1.0");
    setString(app.get(), "CFBundleShortVersionString", shortVersion);
    copyOr(app.get(), entry, "CFBundleVersion", shortVersion);
    setString(app.get(), "CFBundlePackageType", "APPL");
    copyOr(app.get(), entry, "MinimumOSVersion", iosMajor >= 13 ? "13.0" : std::to_string(iosMajor) + ".0");
    plist_t family = plist_new_array();
    plist_array_append_item(family, plist_new_uint(1));
    plist_array_append_item(family, plist_new_uint(2));
    plist_dict_set_item(app.get(), "UIDeviceFamily", family);
    setLocations(app.get(), id, executable, iosMajor);
    setUInt(app.get(), "StaticDiskUsage", dictUInt(entry, "StaticDiskUsage").value_or(4194304 + h % 209715200));
    setUInt(app.get(), "DynamicDiskUsage", dictUInt(entry, "DynamicDiskUsage").value_or(65536 + (h >> 32) % 52428800));
    if (auto sharing = dictBool(entry, "UIFileSharingEnabled"))
        plist_dict_set_item(app.get(), "UIFileSharingEnabled", plist_new_bool(*sharing));
    if (dictBool(entry, "Sideloaded").value_or(false)) {
        setString(app.get(), "SignerIdentity", "Apple Development: Example Developer (A1B2C3D4E5)");
    } else {
        setString(app.get(), "SignerIdentity", "Apple iPhone OS Application Signing");
        setData(app.get(), "iTunesMetadata", storeMetadata(app.get(), dictDict(entry, "Store"), appleId));
        setData(app.get(), "ApplicationSINF", sinfFor(id));
    }
    return app;
}

PlistPtr systemApp(plist_t entry, const std::string& iosVersion) {
    const std::string id = dictString(entry, "CFBundleIdentifier").value_or("");
    if (id.empty()) return nullptr;
    const uint64_t h = stableHash(id + "#size");
    PlistPtr app = adopt(plist_new_dict());
    setString(app.get(), "ApplicationType", "System");
    setString(app.get(), "CFBundleIdentifier", id);
    const std::string display = dictString(entry, "CFBundleDisplayName").value_or(lastComponent(id));
    setString(app.get(), "CFBundleDisplayName", display);
    const std::string executable = dictString(entry, "CFBundleExecutable").value_or(executableFor(display, id));
    setString(app.get(), "CFBundleExecutable", executable);
    copyOr(app.get(), entry, "CFBundleName", executable);
    copyOr(app.get(), entry, "CFBundleShortVersionString", iosVersion);
    copyOr(app.get(), entry, "CFBundleVersion", "1.0");
    setString(app.get(), "CFBundlePackageType", "APPL");
    copyOr(app.get(), entry, "MinimumOSVersion", iosVersion);
    setString(app.get(), "Path", "/Applications/" + executable + ".app");
    setUInt(app.get(), "StaticDiskUsage", dictUInt(entry, "StaticDiskUsage").value_or(1048576 + h % 41943040));
    setUInt(app.get(), "DynamicDiskUsage", dictUInt(entry, "DynamicDiskUsage").value_or(h % 8388608));
    return app;
}

// "Generate": {Count, IdentifierPrefix, NamePrefix} made-up store apps, so a
// profile with a thousand apps stays a few lines long.
void generateApps(plist_t recipe, const std::string& appleId, unsigned iosMajor, std::vector<PlistPtr>& out) {
    const uint64_t count = std::min<uint64_t>(dictUInt(recipe, "Count").value_or(0), 100000);
    const std::string prefix = dictString(recipe, "IdentifierPrefix").value_or("com.example.generated");
    const std::string namePrefix = dictString(recipe, "NamePrefix").value_or("App");
    for (uint64_t i = 1; i <= count; ++i) {
        char number[16];
        snprintf(number, sizeof number, "%04llu", static_cast<unsigned long long>(i));
        PlistPtr entry = adopt(plist_new_dict());
        setString(entry.get(), "CFBundleIdentifier", prefix + ".app" + number);
        setString(entry.get(), "CFBundleDisplayName", namePrefix + " " + number);
        setString(entry.get(), "CFBundleShortVersionString",
                  std::to_string(1 + i % 5) + "." + std::to_string(i % 10) + "." + std::to_string(i % 3));
        setString(entry.get(), "CFBundleVersion", std::to_string(100 + i));
        if (PlistPtr app = userApp(entry.get(), appleId, iosMajor)) out.push_back(std::move(app));
    }
}

void forEachEntry(plist_t array, const std::function<void(plist_t)>& fn) {
    if (!array || plist_get_node_type(array) != PLIST_ARRAY) return;
    for (uint32_t i = 0; i < plist_array_get_size(array); ++i) {
        plist_t entry = plist_array_get_item(array, i);
        if (plist_get_node_type(entry) == PLIST_DICT) fn(entry);
    }
}

}  // namespace

std::vector<PlistPtr> appsFromProfile(plist_t profile) {
    std::vector<PlistPtr> out;
    plist_t apps = dictDict(profile, "Apps");
    if (!apps) return out;
    const std::string appleId = dictString(apps, "AppleID").value_or(kDefaultAppleId);
    const unsigned iosMajor = majorVersion(profile);
    const std::string iosVersion = dictString(dictDict(profile, "Values"), "ProductVersion").value_or("17.0");
    forEachEntry(plist_dict_get_item(apps, "User"), [&](plist_t entry) {
        if (PlistPtr app = userApp(entry, appleId, iosMajor)) out.push_back(std::move(app));
    });
    if (plist_t recipe = dictDict(apps, "Generate")) generateApps(recipe, appleId, iosMajor, out);
    forEachEntry(plist_dict_get_item(apps, "System"), [&](plist_t entry) {
        if (PlistPtr app = systemApp(entry, iosVersion)) out.push_back(std::move(app));
    });
    return out;
}

PlistPtr appFromBackup(plist_t entry, plist_t profile) {
    // Rebuilt as the profile's apps are, for this device's iOS (its own
    // container paths), keeping the store data the backup carried.
    PlistPtr described = adopt(plist_copy(entry));
    const bool fromStore = plist_dict_get_item(entry, "iTunesMetadata") != nullptr;
    plist_dict_set_item(described.get(), "Sideloaded",
                        plist_new_bool(dictBool(entry, "Sideloaded").value_or(!fromStore)));
    const std::string appleId = dictString(dictDict(profile, "Apps"), "AppleID").value_or(kDefaultAppleId);
    PlistPtr app = userApp(described.get(), appleId, majorVersion(profile));
    if (!app) return nullptr;
    for (const char* key : {"iTunesMetadata", "ApplicationSINF", "SignerIdentity", "UIDeviceFamily"})
        if (plist_t value = plist_dict_get_item(entry, key)) plist_dict_set_item(app.get(), key, plist_copy(value));
    return app;
}

PlistPtr appFromPackage(const PackageContents& package, plist_t options, plist_t previous, plist_t profile) {
    plist_t info = package.info.get();
    const std::string id = dictString(info, "CFBundleIdentifier").value_or("");
    PlistPtr app = adopt(plist_new_dict());
    setString(app.get(), "ApplicationType", "User");
    setString(app.get(), "CFBundleIdentifier", id);
    const std::string executable =
        dictString(info, "CFBundleExecutable").value_or(package.appDir.substr(0, package.appDir.size() - 4));
    const std::string name = dictString(info, "CFBundleName").value_or(executable);
    setString(app.get(), "CFBundleDisplayName", dictString(info, "CFBundleDisplayName").value_or(name));
    setString(app.get(), "CFBundleName", name);
    setString(app.get(), "CFBundleExecutable", executable);
    const std::string version = dictString(info, "CFBundleVersion").value_or("1");
    setString(app.get(), "CFBundleVersion", version);
    copyOr(app.get(), info, "CFBundleShortVersionString", version);
    setString(app.get(), "CFBundlePackageType", "APPL");
    if (auto minimum = dictString(info, "MinimumOSVersion")) setString(app.get(), "MinimumOSVersion", *minimum);
    if (plist_t family = plist_dict_get_item(info, "UIDeviceFamily"))
        plist_dict_set_item(app.get(), "UIDeviceFamily", plist_copy(family));
    if (auto sharing = dictBool(info, "UIFileSharingEnabled"))
        plist_dict_set_item(app.get(), "UIFileSharingEnabled", plist_new_bool(*sharing));

    // An upgrade keeps the app's containers and its documents.
    const unsigned iosMajor = majorVersion(profile);
    setLocations(app.get(), id, executable, iosMajor);
    if (auto container = dictString(previous, "Container")) setString(app.get(), "Container", *container);
    // Blocks of 4 KiB, as a file system counts them, plus the signature files.
    setUInt(app.get(), "StaticDiskUsage", (package.payloadBytes + 4095) / 4096 * 4096 + 8192);
    setUInt(app.get(), "DynamicDiskUsage", dictUInt(previous, "DynamicDiskUsage").value_or(40960));

    std::optional<std::string> metadata = package.metadata;
    if (!metadata) {
        if (auto fromHost = dictData(options, "iTunesMetadata")) metadata = std::string(fromHost->begin(), fromHost->end());
    }
    std::optional<std::string> sinf = package.sinf;
    if (!sinf) {
        if (auto fromHost = dictData(options, "ApplicationSINF")) sinf = std::string(fromHost->begin(), fromHost->end());
    }
    setString(app.get(), "SignerIdentity",
              metadata ? "Apple iPhone OS Application Signing" : "Apple Development: Example Developer (A1B2C3D4E5)");
    if (metadata) setData(app.get(), "iTunesMetadata", *metadata);
    if (sinf) setData(app.get(), "ApplicationSINF", *sinf);
    return app;
}

std::string bundleDirOf(plist_t app) {
    const std::string path = dictString(app, "Path").value_or("");
    auto slash = path.rfind('/');
    std::string dir = slash == std::string::npos ? path : path.substr(slash + 1);
    return dir.empty() ? "App.app" : dir;
}

std::string infoPlistOf(plist_t app) {
    PlistPtr info = adopt(plist_new_dict());
    for (const char* key : {"CFBundleIdentifier", "CFBundleDisplayName", "CFBundleName", "CFBundleExecutable",
                            "CFBundleShortVersionString", "CFBundleVersion", "CFBundlePackageType",
                            "MinimumOSVersion", "UIDeviceFamily", "UIFileSharingEnabled"}) {
        if (plist_t value = plist_dict_get_item(app, key)) plist_dict_set_item(info.get(), key, plist_copy(value));
    }
    return toXml(info.get());
}

}  // namespace zsim
