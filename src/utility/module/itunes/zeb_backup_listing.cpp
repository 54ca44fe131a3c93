// Command 1602: the backups in the parent's folders. Each is announced as
// soon as it is found (stage 0), and again with its size once every one
// has been found (stage 1), since sizing a folder takes long.
#include "zeb_module_itunes.h"
#include "zeb_backup_folder_files.h"
#include "zeb_format.h"
#include "zeb_paged_reply.h"
#include "zeb_paths.h"
#include "zeb_plist_bridge.h"
#include "zeb_local_file.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cctype>
#include <cmath>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace {

using Allocator = rapidjson::Document::AllocatorType;

// A property list file of at most `limit` bytes as an owned CF value, or null.
CFPropertyListRef readPlist(const fs::path& file, size_t limit) {
    std::string bytes;
    if (!zeb::readRegularFile(file, limit, bytes) || bytes.empty()) return nullptr;
    CFDataRef data = zeb::api().CFDataCreate(nullptr, reinterpret_cast<const uint8_t*>(bytes.data()),
                                             static_cast<CFIndex>(bytes.size()));
    if (!data) return nullptr;
    CFPropertyListRef list = zeb::api().CFPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr);
    zeb::api().CFRelease(data);
    if (list && zeb::api().CFGetTypeID(list) != kZebCFDictionaryTypeID) {
        zeb::api().CFRelease(list);
        return nullptr;
    }
    return list;
}

bool textOf(CFPropertyListRef dict, const char* key, std::string& out) {
    return CfStringText(CfDictionaryValue(dict, key), out);
}

class BackupFinder {
public:
    explicit BackupFinder(rapidjson::Document& found) : found_(found) {}

    void inspect(const fs::path& folder) {
        if (tryBackup(folder)) return;
        std::error_code error;
        for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
            if (it->is_directory(error)) tryBackup(it->path() / "");
    }

    const std::vector<std::string>& order() const { return order_; }

private:
    bool tryBackup(const fs::path& folder) {
        std::error_code error;
        for (const char* name : {"Info.plist", "Manifest.plist", "Status.plist"})
            if (!fs::exists(folder / name, error)) return false;
        const std::string key = folder.string();
        if (found_.HasMember(key.c_str())) return true;
        CFPropertyListRef info = readPlist(folder / "Info.plist", backup::kInfoPlistLimit);
        if (!info) return true;  // a backup, but one that cannot be described
        Allocator& allocator = found_.GetAllocator();
        rapidjson::Value record(rapidjson::kObjectType);
        auto add = [&](const char* name, const std::string& value) {
            record.AddMember(rapidjson::Value(name, allocator), rapidjson::Value(value.c_str(), allocator), allocator);
        };
        std::string text;
        for (const char* name : {"Product Version", "Build Version", "Serial Number"}) {
            text.clear();
            textOf(info, name, text);
            add(name, text);
        }
        text.clear();
        if (!textOf(info, "Device Name", text)) textOf(info, "Display Name", text);
        add("Device Name", text);
        text.clear();
        if (!textOf(info, "Target Identifier", text)) textOf(info, "Unique Identifier", text);
        for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
        add("Unique Identifier", text);
        text.clear();
        const void* date = CfDictionaryValue(info, "Last Backup Date");
        if (date && zeb::api().CFGetTypeID(date) == kZebCFDateTypeID)
            text = zeb::appleTimeToText(static_cast<int64_t>(std::floor(zeb::api().CFDateGetAbsoluteTime(date))));
        add("Last Backup Date", text);
        text.clear();
        textOf(info, "Product Type", text);
        add("Product Type", text);
        add("Path", key);
        zeb::api().CFRelease(info);

        bool encrypted = false;
        if (CFPropertyListRef manifest = readPlist(folder / "Manifest.plist", backup::kManifestPlistLimit)) {
            const void* flag = CfDictionaryValue(manifest, "IsEncrypted");
            encrypted = flag && zeb::api().CFGetTypeID(flag) == kZebCFBooleanTypeID && zeb::api().CFBooleanGetValue(flag);
            zeb::api().CFRelease(manifest);
        }
        record.AddMember("IsEncrypted", encrypted, allocator);
        found_.AddMember(rapidjson::Value(key.c_str(), allocator), record, allocator);
        order_.push_back(key);
        onFound(found_[key.c_str()]);
        return true;
    }

public:
    std::function<void(const rapidjson::Value&)> onFound;

private:
    rapidjson::Document& found_;
    std::vector<std::string> order_;
};

std::string jsonText(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return buffer.GetString();
}

}  // namespace

int64_t ZEBModuleiTunes::listBackups(CommandContext& context, const rapidjson::Document& request) {
    auto paths = request.FindMember("paths");
    if (paths == request.MemberEnd() || !paths->value.IsArray()) return kCodeBadJson;
    const zeb::PagedReply events{context.packet, context.packet->commandType, context.uuid};
    rapidjson::Document found;
    found.SetObject();
    BackupFinder finder(found);
    finder.onFound = [&](const rapidjson::Value& record) {
        zeb::sendReplyEvent(events, 0, jsonText(record).c_str(), nullptr);
    };
    std::error_code error;
    for (const auto& path : paths->value.GetArray()) {
        if (!path.IsString()) continue;
        const std::string given = path.GetString();
        if (given.empty())
            finder.inspect(zeb::backupRoot());
        else if (fs::is_directory(given, error))
            finder.inspect(fs::path(given));
    }
    for (const std::string& key : finder.order()) {
        rapidjson::Value& record = found[key.c_str()];
        record.AddMember("Size", static_cast<int64_t>(zeb::folderSize(key)), found.GetAllocator());
        zeb::sendReplyEvent(events, 1, jsonText(record).c_str(), nullptr);
    }
    return kCodeSuccess;
}
