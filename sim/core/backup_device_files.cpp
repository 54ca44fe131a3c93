#include "core/backup_device_files.h"

#include "core/sync_store.h"

#include <sys/stat.h>

#include <ctime>
#include <set>
#include <system_error>

namespace zsim {
namespace fs = std::filesystem;

namespace {

const char* const kHostFiles[] = {"com.apple.itunes.lock_sync", "iTunesRestore"};

struct StoreFile {
    const char* storeName;
    const char* relativePath;
};

// Beside the device's own databases for each kind of record.
const StoreFile kStoreFiles[] = {
    {"Contacts", "Library/AddressBook/Contacts.plist"},
    {"Calendars", "Library/Calendar/Calendars.plist"},
    {"Bookmarks", "Library/Safari/Bookmarks.plist"},
    {"Notes", "Library/Notes/Notes.plist"},
};

const char* domainOfMediaPath(const std::string& path) {
    const std::string top = path.substr(0, path.find('/'));
    return top == "DCIM" || top == "PhotoData" ? "CameraRollDomain" : "MediaDomain";
}

class ItemList {
public:
    void addFolders(const std::string& domain, const std::string& path, int64_t modified) {
        for (size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1))
            addFolder(domain, path.substr(0, slash), modified);
    }

    void addFolder(const std::string& domain, const std::string& path, int64_t modified) {
        if (!folders_.insert(domain + "-" + path).second) return;
        BackupItem& item = add(domain, path, modified);
        item.directory = true;
    }

    BackupItem& add(const std::string& domain, const std::string& path, int64_t modified) {
        BackupItem item;
        item.domain = domain;
        item.relativePath = path;
        item.fileID = backupFileId(domain, path);
        item.modified = modified;
        items_.push_back(std::move(item));
        return items_.back();
    }

    std::vector<BackupItem> take() { return std::move(items_); }

private:
    std::vector<BackupItem> items_;
    std::set<std::string> folders_;
};

void addMediaPartition(const fs::path& root, ItemList& list) {
    std::error_code ec;
    fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied, ec), end;
    for (; !ec && it != end; it.increment(ec)) {
        const std::string path = it->path().lexically_relative(root).generic_string();
        if (isHostFile(path)) {
            it.disable_recursion_pending();
            continue;
        }
        struct stat st {};
        if (::lstat(it->path().c_str(), &st) != 0) continue;
        const std::string domain = domainOfMediaPath(path);
        const std::string relativePath = "Media/" + path;
        list.addFolders(domain, relativePath, st.st_mtime);
        if (S_ISDIR(st.st_mode)) {
            list.addFolder(domain, relativePath, st.st_mtime);
        } else if (S_ISREG(st.st_mode)) {
            BackupItem& item = list.add(domain, relativePath, st.st_mtime);
            item.size = static_cast<uint64_t>(st.st_size);
            item.source = it->path();
        }
    }
}

void addSyncStores(const ServiceContext& ctx, ItemList& list) {
    const int64_t now = time(nullptr);
    for (const StoreFile& file : kStoreFiles) {
        const SyncDataClass* cls = nullptr;
        for (const auto& c : syncDataClasses())
            if (std::string(c.storeName) == file.storeName) cls = &c;
        if (!cls) continue;
        list.addFolders("HomeDomain", file.relativePath, now);
        BackupItem& item = list.add("HomeDomain", file.relativePath, now);
        item.bytes = std::make_shared<const std::string>(syncStoreFor(ctx, *cls).serialized());
        item.size = item.bytes->size();
    }
}

}  // namespace

std::vector<BackupItem> deviceBackupItems(const ServiceContext& ctx) {
    ItemList list;
    if (!ctx.mediaRoot.empty()) addMediaPartition(ctx.mediaRoot, list);
    addSyncStores(ctx, list);
    return list.take();
}

BackupContent withDeviceItems(const BackupContent& generated, std::vector<BackupItem> device) {
    std::set<std::string> taken;
    for (const BackupItem& item : device) taken.insert(item.fileID);
    BackupContent out;
    out.items.reserve(generated.items.size() + device.size());
    for (const BackupItem& item : generated.items)
        if (!taken.count(item.fileID)) out.items.push_back(item);
    for (BackupItem& item : device) out.items.push_back(std::move(item));
    for (const BackupItem& item : out.items) {
        out.fileBytes += item.size;
        if (!item.directory) ++out.fileCount;
    }
    return out;
}

std::optional<std::string> mediaPathOf(const std::string& domain, const std::string& relativePath) {
    if (domain != "CameraRollDomain" && domain != "MediaDomain") return std::nullopt;
    if (relativePath == "Media") return std::string();
    if (relativePath.rfind("Media/", 0) != 0) return std::nullopt;
    const std::string path = relativePath.substr(6);
    for (size_t start = 0; start <= path.size();) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        const std::string component = path.substr(start, end - start);
        if (component.empty() || component == "." || component == "..") return std::nullopt;
        start = end + 1;
    }
    return path;
}

const SyncDataClass* syncClassOf(const std::string& domain, const std::string& relativePath) {
    if (domain != "HomeDomain") return nullptr;
    for (const StoreFile& file : kStoreFiles) {
        if (relativePath != file.relativePath) continue;
        for (const auto& c : syncDataClasses())
            if (std::string(c.storeName) == file.storeName) return &c;
    }
    return nullptr;
}

bool isHostFile(const std::string& mediaPath) {
    const std::string top = mediaPath.substr(0, mediaPath.find('/'));
    for (const char* name : kHostFiles)
        if (top == name) return true;
    return false;
}

}  // namespace zsim
