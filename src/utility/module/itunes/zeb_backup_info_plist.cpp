#include "zeb_backup_info_plist.h"

#include "zeb_afc.h"
#include "zeb_command_table.h"
#include "zeb_device_overview.h"
#include "zeb_json_parse.h"
#include "zeb_local_file.h"
#include "zeb_module_app.h"
#include "zeb_plist_bridge.h"

#include <rapidjson/document.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

namespace {

const char* const kITunesFiles[] = {
    "ApertureAlbumPrefs", "IC-Info.sidb",         "IC-Info.sidv",         "PhotosFolderAlbums",
    "PhotosFolderName",   "PhotosFolderPrefs",    "VoiceMemos.plist",     "iPhotoAlbumPrefs",
    "iTunesApplicationIDs", "iTunesPrefs",        "iTunesPrefs.plist",    "Ringtones.plist",
};

// Property name -> "Info.plist" keys that take it.
const std::pair<const char*, const char*> kFromProperties[] = {
    {"BuildVersion", "Build Version"},
    {"DeviceName", "Device Name"},
    {"DeviceName", "Display Name"},
    {"IntegratedCircuitCardIdentity", "ICCID"},
    {"InternationalMobileEquipmentIdentity", "IMEI"},
    {"MobileEquipmentIdentifier", "MEID"},
    {"PhoneNumber", "Phone Number"},
    {"ProductType", "Product Type"},
    {"ProductVersion", "Product Version"},
    {"SerialNumber", "Serial Number"},
};

// A CF dictionary filled key by key; values given to it are released.
class CfDictionary {
public:
    CfDictionary() : dict_(zeb::api().CFDictionaryCreateMutable(nullptr, 0, nullptr, nullptr)) {}
    ~CfDictionary() {
        if (dict_) zeb::api().CFRelease(dict_);
    }
    CFMutableDictionaryRef get() const { return dict_; }
    // Adds a value the caller keeps (the dictionary retains its own).
    void put(const std::string& key, CFTypeRef value) {
        if (!dict_ || !value) return;
        CFStringRef name = zeb::api().CFStringCreateWithCString(nullptr, key.c_str(), kZebCFStringEncodingUTF8);
        zeb::api().CFDictionaryAddValue(dict_, name, value);
        zeb::api().CFRelease(name);
    }
    // Adds a value made for it and lets go of the maker's reference.
    void take(const char* key, CFTypeRef value) {
        if (!value) return;
        put(key, value);
        zeb::api().CFRelease(value);
    }
    void text(const char* key, const std::string& value) {
        take(key, zeb::api().CFStringCreateWithCString(nullptr, value.c_str(), kZebCFStringEncodingUTF8));
    }
    void data(const char* key, const std::string& bytes) {
        take(key, zeb::api().CFDataCreate(nullptr, reinterpret_cast<const uint8_t*>(bytes.data()),
                                          static_cast<CFIndex>(bytes.size())));
    }
    // A copy of another dictionary's value under the same key, when there.
    void copyFrom(CFDictionaryRef source, const char* key) {
        const void* value = CfDictionaryValue(source, key);
        if (value && zeb::api().CFGetTypeID(value) == kZebCFDataTypeID)
            take(key, zeb::api().CFDataCreateCopy(nullptr, static_cast<CFDataRef>(value)));
    }

private:
    CFMutableDictionaryRef dict_;
};

// 32 characters of "ABCDEF0123456789", new for every backup.
std::string makeGuid() {
    static const char kDigits[] = "ABCDEF0123456789";
    unsigned seed = static_cast<unsigned>(time(nullptr));
    std::string guid;
    for (int i = 0; i < 32; ++i) guid += kDigits[rand_r(&seed) % 16];
    return guid;
}

// Store apps (with their sale record and store data) and their icons.
void addApplications(CfDictionary& info, ZEBDevice& device, const IPCPacket1* command) {
    auto* apps = dynamic_cast<ZEBModuleApp*>(zeb::findModule(501));
    std::vector<CFTypeRef> pages;
    if (!apps || !zeb::CopyInstalledApps(apps, device, pages)) return;
    CfDictionary applications;
    CFMutableArrayRef installed = zeb::api().CFArrayCreateMutable(nullptr, 0, nullptr);
    zeb::forEachBrowsedApp(pages, [&](CFDictionaryRef app, const std::string& id) {
        if (id.empty() || !CfDictionaryValue(app, "ApplicationSINF") || !CfDictionaryValue(app, "iTunesMetadata")) return;
        CFStringRef name = zeb::api().CFStringCreateWithCString(nullptr, id.c_str(), kZebCFStringEncodingUTF8);
        zeb::api().CFArrayAppendValue(installed, name);
        zeb::api().CFRelease(name);
        CfDictionary entry;
        entry.copyFrom(app, "ApplicationSINF");
        entry.copyFrom(app, "iTunesMetadata");
        if (CFTypeRef icon = zeb::CopyAppIcon(apps, command, device, id)) {
            const void* png = CfDictionaryValue(icon, "pngData");
            if (png && zeb::api().CFGetTypeID(png) == kZebCFDataTypeID)
                entry.take("PlaceholderIcon", zeb::api().CFDataCreateCopy(nullptr, static_cast<CFDataRef>(png)));
            zeb::api().CFRelease(icon);
        }
        applications.put(id, entry.get());
    });
    for (CFTypeRef page : pages) zeb::api().CFRelease(page);
    info.put("Applications", applications.get());
    info.take("Installed Applications", installed);
}

// The media partition's files the desktop library keeps, as data.
void addDeviceFiles(CfDictionary& info, const ServicePtr& afc) {
    if (!afc || !afc->afc) return;
    std::string content;
    if (zeb::AfcDownloadFile(afc->afc, "/Books/iBooksData2.plist", nullptr, &content) && !content.empty())
        info.data("iBooks Data 2", content);
    CfDictionary files;
    for (const char* name : kITunesFiles) {
        content.clear();
        if (zeb::AfcDownloadFile(afc->afc, std::string("/iTunes_Control/iTunes/") + name, nullptr, &content) &&
            !content.empty())
            files.data(name, content);
    }
    info.put("iTunes Files", files.get());
}

}  // namespace

namespace backup {

void writeInfoPlist(ZEBDevice& device, const IPCPacket1* command, const std::filesystem::path& folder) {
    // Held to the end: the media partition's files come through it, and it
    // keeps the session up for the device's values.
    int32_t error = 0;
    ServicePtr afc = zeb::StartService(device.handle, error, "com.apple.afc", nullptr, true);
    rapidjson::Document properties;
    const std::string overview = zeb::BuildDeviceOverview(device);
    zeb::parseJson(properties, overview.c_str(), overview.size());
    if (!properties.IsObject()) properties.SetObject();
    auto property = [&](const char* key, std::string& out) {
        auto found = properties.FindMember(key);
        if (found == properties.MemberEnd() || !found->value.IsString()) return false;
        out = found->value.GetString();
        return true;
    };

    CfDictionary info;
    addApplications(info, device, command);
    std::string value;
    for (const auto& [name, key] : kFromProperties)
        if (property(name, value)) info.text(key, value);
    info.text("GUID", makeGuid());
    info.take("Last Backup Date", zeb::api().CFDateCreate(nullptr, zeb::api().CFAbsoluteTimeGetCurrent()));
    std::string udid;
    property("UniqueDeviceID", udid);
    info.text("Target Identifier", udid);
    info.text("Target Type", "Device");
    std::string upper = udid;
    for (char& c : upper) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    info.text("Unique Identifier", upper);
    addDeviceFiles(info, afc);
    CfDictionary settings;
    info.put("iTunes Settings", settings.get());
    info.text("iTunes Version", "11.2.2.3");

    SyncMessage* encoded = EncodeValue(info.get(), kZebCFPropertyListBinaryFormat);
    if (!encoded) return;
    if (FILE* file = zeb::overwriteLocalFile(folder / "Info.plist")) {
        fwrite(encoded->bytes, 1, encoded->length, file);
        fclose(file);
    }
    FreeSyncMessage(encoded);
}

}  // namespace backup
