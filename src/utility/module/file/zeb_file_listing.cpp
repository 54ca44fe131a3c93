// Command 704: the entries of a device folder, for a parent that browses.
#include "zeb_afc.h"
#include "zeb_file_names.h"
#include "zeb_file_transfer.h"
#include "zeb_module_file.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstring>
#include <vector>

namespace {

using zeb::api;

constexpr size_t kEntriesPerEvent = 100;

struct Entry {
    std::string name;
    std::string type;
    int64_t size = 0;
    int64_t mtime = 0;
    std::string target;
};

// The AFC attributes with the link's real target, which the shared
// attribute record only marks as present.
bool readEntry(AFCConnectionRef afc, const std::string& path, Entry& entry) {
    AFCKeyValueRef values = nullptr;
    if (api().AFCFileInfoOpen(afc, path.c_str(), &values) != 0) return false;
    char* key = nullptr;
    char* value = nullptr;
    std::string fileType;
    while (api().AFCKeyValueRead(values, &key, &value) == 0 && key) {
        if (!value) continue;
        if (strcmp(key, "st_size") == 0) entry.size = strtoll(value, nullptr, 10);
        else if (strcmp(key, "st_mtime") == 0) entry.mtime = strtoll(value, nullptr, 10) / 1000000000;
        else if (strcmp(key, "st_ifmt") == 0) fileType = value;
        else if (strcmp(key, "LinkTarget") == 0) entry.target = value;
    }
    api().AFCKeyValueClose(values);
    if (fileType == "S_IFREG") entry.type = "file";
    else if (fileType == "S_IFDIR") entry.type = "folder";
    else if (fileType == "S_IFLNK") entry.type = "link";
    else entry.type = "other";
    return true;
}

std::string entriesJson(const std::vector<Entry>& entries, size_t from, size_t to) {
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    writer.StartArray();
    for (size_t i = from; i < to; ++i) {
        const Entry& entry = entries[i];
        writer.StartObject();
        writer.Key("name");
        writer.String(entry.name.c_str(), static_cast<rapidjson::SizeType>(entry.name.size()));
        writer.Key("type");
        writer.String(entry.type.c_str());
        writer.Key("size");
        writer.Int64(entry.size);
        writer.Key("mtime");
        writer.Int64(entry.mtime);
        if (entry.type == "link") {
            writer.Key("target");
            writer.String(entry.target.c_str(), static_cast<rapidjson::SizeType>(entry.target.size()));
        }
        writer.EndObject();
    }
    writer.EndArray();
    return text.GetString();
}

}  // namespace

int64_t ZEBModuleFile::listFolder(CommandContext& context) {
    rapidjson::Document tail;
    if (!context.readTail(tail) || !tail.IsObject()) return kCodeBadTail;
    auto pathValue = tail.FindMember("path");
    if (pathValue == tail.MemberEnd() || !pathValue->value.IsString()) return kCodeBadTail;
    std::string folder = pathValue->value.GetString();
    if (folder.empty() || zeb::hasParentComponent(folder)) return kCodeBadTail;

    auto store = zeb::openPieceStore(*context.device);
    if (!store) return kCodeServiceFailed;
    AFCConnectionRef afc = store->afc();
    // A folder the device could not be asked about is no missing folder:
    // a link that broke or fell silent ends the listing as broken.
    auto notListed = [&] { return store->linkBroken() ? kCodeConversationBroke : kCodeNoSuchFolder; };
    AfcFileInfo info;
    if (!zeb::AfcGetFileInfo(afc, folder, info) || info.file_type != "S_IFDIR") return notListed();

    std::vector<Entry> entries;
    AFCDirectoryRef directory = nullptr;
    if (api().AFCDirectoryOpen(afc, folder.c_str(), &directory) != 0) return notListed();
    std::vector<std::string> names;
    char* name = nullptr;
    while (api().AFCDirectoryRead(afc, directory, &name) == 0 && name) {
        if (strcmp(name, ".") != 0 && strcmp(name, "..") != 0) names.emplace_back(name);
    }
    api().AFCDirectoryClose(afc, directory);
    for (const auto& child : names) {
        Entry entry;
        entry.name = child;
        std::string path = folder;
        if (path.back() != '/') path.push_back('/');
        if (readEntry(afc, path + child, entry)) entries.push_back(std::move(entry));
        if (zeb::isCancelled(context.device->taskTable, context.task)) return kCodeCancelled;
    }
    // Entries whose reading failed are left out; a listing cut off by the
    // link is not passed off as whole.
    if (store->linkBroken()) return kCodeConversationBroke;

    const std::string head = "{\"Count\":" + std::to_string(entries.size()) + "}";
    zeb::sendTransferEvent(context, 0, 0, 2, head.c_str(), nullptr, 0);
    for (size_t from = 0; from < entries.size(); from += kEntriesPerEvent) {
        std::string chunk = entriesJson(entries, from, std::min(entries.size(), from + kEntriesPerEvent));
        zeb::sendTransferEvent(context, 1, 0, 2, nullptr, chunk.data(), chunk.size());
    }
    return kCodeSuccess;
}
