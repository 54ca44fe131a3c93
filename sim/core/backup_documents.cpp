#include "core/backup_documents.h"

#include "core/app_registry.h"

#include <openssl/rand.h>

#include <cstdio>
#include <ctime>

namespace zsim {
namespace {

constexpr int64_t kCocoaEpoch = 978307200;  // 2001-01-01, where plist dates count from

plist_t now() { return plist_new_date(static_cast<int32_t>(time(nullptr) - kCocoaEpoch), 0); }

std::string newUuid() {
    unsigned char b[16];
    RAND_bytes(b, sizeof b);
    char text[40];
    snprintf(text, sizeof text, "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b[0], b[1],
             b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
    return text;
}

std::string dateText(plist_t dict, const char* key) {
    plist_t node = dict ? plist_dict_get_item(dict, key) : nullptr;
    if (!node || plist_get_node_type(node) != PLIST_DATE) return "unknown";
    int32_t sec = 0, usec = 0;
    plist_get_date_val(node, &sec, &usec);
    const time_t t = static_cast<time_t>(sec + kCocoaEpoch);
    struct tm tm {};
    gmtime_r(&t, &tm);
    char text[40];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return text;
}

plist_t lockdownValues(const ServiceContext& ctx) {
    plist_t values = dictDict(ctx.profile, "Values");
    plist_t out = plist_new_dict();
    for (const char* key : {"BuildVersion", "DeviceName", "ProductType", "ProductVersion", "SerialNumber"})
        if (auto v = dictString(values, key)) plist_dict_set_item(out, key, plist_new_string(v->c_str()));
    plist_dict_set_item(out, "UniqueDeviceID", plist_new_string(ctx.udid.c_str()));
    plist_t crashCopy = plist_new_dict();
    plist_dict_set_item(crashCopy, "ShouldSubmit", plist_new_bool(0));
    plist_dict_set_item(out, "com.apple.MobileDeviceCrashCopy", crashCopy);
    return out;
}

// What a restore needs to put the app back as it was, beside the keys
// every backup's entry has.
const char* const kRestoredAppKeys[] = {
    "CFBundleDisplayName", "CFBundleName", "CFBundleExecutable", "CFBundleShortVersionString", "MinimumOSVersion",
    "StaticDiskUsage", "DynamicDiskUsage", "UIFileSharingEnabled", "UIDeviceFamily", "SignerIdentity",
    "iTunesMetadata", "ApplicationSINF",
};

plist_t userApplications(const ServiceContext& ctx) {
    plist_t apps = plist_new_dict();
    appRegistryFor(ctx).forEach([apps](plist_t app) {
        if (dictString(app, "ApplicationType").value_or("") != "User") return;
        const auto id = dictString(app, "CFBundleIdentifier");
        if (!id) return;
        plist_t entry = plist_new_dict();
        plist_dict_set_item(entry, "CFBundleIdentifier", plist_new_string(id->c_str()));
        plist_dict_set_item(entry, "CFBundleVersion", plist_new_string(dictString(app, "CFBundleVersion").value_or("1").c_str()));
        plist_dict_set_item(entry, "ContainerContentClass", plist_new_string("Data/Application"));
        plist_dict_set_item(entry, "Path", plist_new_string(dictString(app, "Path").value_or("").c_str()));
        for (const char* key : kRestoredAppKeys)
            if (plist_t value = plist_dict_get_item(app, key)) plist_dict_set_item(entry, key, plist_copy(value));
        plist_dict_set_item(entry, "Sideloaded", plist_new_bool(plist_dict_get_item(app, "iTunesMetadata") == nullptr));
        plist_dict_set_item(apps, id->c_str(), entry);
    });
    return apps;
}

}  // namespace

PlistPtr makeStatusPlist(bool fullBackup) {
    PlistPtr status = adopt(plist_new_dict());
    plist_dict_set_item(status.get(), "BackupState", plist_new_string("new"));
    plist_dict_set_item(status.get(), "Date", now());
    plist_dict_set_item(status.get(), "IsFullBackup", plist_new_bool(fullBackup));
    plist_dict_set_item(status.get(), "SnapshotState", plist_new_string("finished"));
    plist_dict_set_item(status.get(), "UUID", plist_new_string(newUuid().c_str()));
    plist_dict_set_item(status.get(), "Version", plist_new_string("3.3"));
    return status;
}

PlistPtr makeManifestPlist(const ServiceContext& ctx, bool encrypted, const std::optional<std::string>& keyBag) {
    PlistPtr manifest = adopt(plist_new_dict());
    plist_dict_set_item(manifest.get(), "Version", plist_new_string("10.0"));
    plist_dict_set_item(manifest.get(), "SystemDomainsVersion", plist_new_string("24.0"));
    plist_dict_set_item(manifest.get(), "Date", now());
    plist_dict_set_item(manifest.get(), "IsEncrypted", plist_new_bool(encrypted));
    if (encrypted && keyBag)
        plist_dict_set_item(manifest.get(), "BackupKeyBag", plist_new_data(keyBag->data(), keyBag->size()));
    const bool passcode = dictString(ctx.profile, "Trust").value_or("") == "password";
    plist_dict_set_item(manifest.get(), "WasPasscodeSet", plist_new_bool(passcode));
    plist_dict_set_item(manifest.get(), "Lockdown", lockdownValues(ctx));
    plist_dict_set_item(manifest.get(), "Applications", userApplications(ctx));
    return manifest;
}

bool isFinishedBackup(plist_t status) { return dictString(status, "SnapshotState").value_or("") == "finished"; }

std::string describeBackup(plist_t status, plist_t manifest) {
    plist_t lockdown = dictDict(manifest, "Lockdown");
    auto text = [](plist_t dict, const char* key) { return dictString(dict, key).value_or("unknown"); };
    auto flag = [](plist_t dict, const char* key) { return dictBool(dict, key).value_or(false) ? "1" : "0"; };
    return "<MBStatus: version=" + text(status, "Version") + ", date=" + dateText(status, "Date") +
           ", backupState=" + text(status, "BackupState") + ", snapshotState=" + text(status, "SnapshotState") +
           ", fullBackup=" + flag(status, "IsFullBackup") + ">\n<MBManifest: version=" + text(manifest, "Version") +
           ", date=" + dateText(manifest, "Date") + ", encrypted=" + flag(manifest, "IsEncrypted") +
           ", deviceName=\"" + text(lockdown, "DeviceName") + "\", productType=" + text(lockdown, "ProductType") +
           ", productVersion=" + text(lockdown, "ProductVersion") +
           ", uniqueDeviceID=" + text(lockdown, "UniqueDeviceID") + ">\n";
}

}  // namespace zsim
