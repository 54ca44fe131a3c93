#include "zeb_afc.h"

#include "zeb_local_file.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>

namespace zeb {

namespace {

constexpr uint64_t kModeRead = 1;
constexpr uint64_t kModeReadWrite = 2;

std::string childPath(const std::string& parent, const char* name) {
    std::string path = parent;
    if (path.empty() || path.back() != '/') path.push_back('/');
    return path + name;
}

// Walks the names of a directory other than "." and "..".
template <typename Visit>
bool forEachName(AFCConnectionRef afc, const std::string& path, Visit visit) {
    AFCDirectoryRef directory = nullptr;
    if (api().AFCDirectoryOpen(afc, path.c_str(), &directory) != 0) return false;
    std::unique_ptr<ZebAFCDirectory, std::function<void(ZebAFCDirectory*)>> closer(
        directory, [afc](ZebAFCDirectory* open) { api().AFCDirectoryClose(afc, open); });
    char* name = nullptr;
    while (api().AFCDirectoryRead(afc, directory, &name) == 0 && name) {
        if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) continue;
        visit(name);
    }
    return true;
}

}  // namespace

unsigned char* threadTransferBuffer() {
    // Kept for the life of the thread: no allocation on any transfer path.
    thread_local std::unique_ptr<unsigned char, void (*)(void*)> buffer(nullptr, free);
    if (!buffer) buffer.reset(static_cast<unsigned char*>(malloc(kTransferBufferSize)));
    return buffer.get();
}

bool AfcGetFileInfo(AFCConnectionRef afc, const std::string& path, AfcFileInfo& info) {
    AFCKeyValueRef values = nullptr;
    if (!afc || api().AFCFileInfoOpen(afc, path.c_str(), &values) != 0) return false;
    char* key = nullptr;
    char* value = nullptr;
    while (api().AFCKeyValueRead(values, &key, &value) == 0 && key) {
        if (!value) continue;
        if (strcmp(key, "st_nlink") == 0) info.nlink = atoi(value);
        else if (strcmp(key, "st_blocks") == 0) info.blocks = atoi(value);
        else if (strcmp(key, "st_size") == 0) info.size = strtoll(value, nullptr, 10);
        else if (strcmp(key, "st_birthtime") == 0) info.birth_time = strtoll(value, nullptr, 10) / 1000000000;
        else if (strcmp(key, "st_mtime") == 0) info.modification_time = strtoll(value, nullptr, 10) / 1000000000;
        else if (strcmp(key, "st_ifmt") == 0) info.file_type = value;
        else if (strcmp(key, "LinkTarget") == 0) info.link_target = "LinkTarget";
    }
    api().AFCKeyValueClose(values);
    return true;
}

bool AfcRemoveFile(AFCConnectionRef afc, const std::string& path) { return api().AFCRemovePath(afc, path.c_str()) == 0; }

bool AfcRemoveTree(AFCConnectionRef afc, const std::string& path, bool removeRoot, bool nested) {
    AfcFileInfo info;
    if (!AfcGetFileInfo(afc, path, info) || info.file_type != "S_IFDIR") return false;
    bool opened = forEachName(afc, path, [&](const char* name) {
        std::string child = childPath(path, name);
        AfcFileInfo childInfo;
        if (!AfcGetFileInfo(afc, child, childInfo)) return;
        // Links are left alone: a tree that holds one can't be emptied.
        if (childInfo.file_type == "S_IFDIR")
            AfcRemoveTree(afc, child, removeRoot, true);
        else if (childInfo.file_type == "S_IFREG")
            AfcRemoveFile(afc, child);
    });
    if (!opened) return false;
    if (removeRoot || nested) return AfcRemoveFile(afc, path);
    return false;
}

bool AfcMakeDirectory(AFCConnectionRef afc, const std::string& path) {
    AfcFileInfo info;
    if (AfcGetFileInfo(afc, path, info) && info.file_type == "S_IFDIR") return true;
    return api().AFCDirectoryCreate(afc, path.c_str()) == 0;
}

bool AfcCopyTreeToLocal(AFCConnectionRef afc, const std::string& devicePath, const std::filesystem::path& localDir) {
    AfcFileInfo info;
    if (!AfcGetFileInfo(afc, devicePath, info) || info.file_type != "S_IFDIR") return false;
    // A link in the folder's place is not copied through.
    if (!makeLocalFolder(localDir)) return false;
    forEachName(afc, devicePath, [&](const char* name) {
        std::string child = childPath(devicePath, name);
        AfcFileInfo childInfo;
        if (!AfcGetFileInfo(afc, child, childInfo)) return;
        // Names from the device never climb out of the local folder.
        if (strchr(name, '/') != nullptr) return;
        std::filesystem::path local = localDir / name;
        if (childInfo.file_type == "S_IFDIR")
            AfcCopyTreeToLocal(afc, child, local);
        else if (childInfo.file_type == "S_IFREG")
            AfcDownloadFile(afc, child, &local, nullptr);
    });
    return false;
}

bool AfcUploadFile(AFCConnectionRef afc, const std::filesystem::path& localPath, const std::string& devicePath) {
    FILE* local = fopen(localPath.c_str(), "rb");
    if (!local) return false;
    AFCFileRef file = 0;
    if (api().AFCFileRefOpen(afc, devicePath.c_str(), kModeReadWrite, &file) != 0) {
        fclose(local);
        return false;
    }
    unsigned char* buffer = threadTransferBuffer();
    size_t got = 0;
    while ((got = fread(buffer, 1, kTransferBufferSize, local)) > 0)
        api().AFCFileRefWrite(afc, file, buffer, static_cast<uint32_t>(got));
    fclose(local);
    api().AFCFileRefClose(afc, file);
    return true;
}

bool AfcDownloadFile(AFCConnectionRef afc, const std::string& devicePath, const std::filesystem::path* localPath,
                     std::string* out) {
    AfcFileInfo info;
    if (!AfcGetFileInfo(afc, devicePath, info)) return false;
    AFCFileRef file = 0;
    if (api().AFCFileRefOpen(afc, devicePath.c_str(), kModeRead, &file) != 0) return false;
    unsigned char* buffer = threadTransferBuffer();
    FILE* local = nullptr;
    bool reading = true;
    if (localPath) {
        local = overwriteLocalFile(*localPath);  // truncated; a link there is refused
        reading = local != nullptr;  // an unopened local file ends the step, still true
    }
    int64_t total = 0;
    while (reading) {
        uint32_t length = kTransferBufferSize;
        // A read error looks like the end of the file.
        if (api().AFCFileRefRead(afc, file, buffer, &length) != 0) length = 0;
        if (length == 0) break;
        if (local)
            fwrite(buffer, 1, length, local);
        else if (out)
            out->append(reinterpret_cast<char*>(buffer), length);
        total += length;
        if (total >= info.size) break;
    }
    if (local) fclose(local);
    api().AFCFileRefClose(afc, file);
    return true;
}

bool IsJailbreak(ZEBDevice& device) {
    int32_t error = 0;
    ServicePtr service = StartService(device.handle, error, "com.apple.afc2", nullptr, true);
    if (!service || !service->afc) return false;
    const char* probe = "/var/root/Media/Cydia/AutoInstall";
    for (int attempt = 0; attempt < 2; ++attempt) {
        AFCDirectoryRef directory = nullptr;
        if (api().AFCDirectoryOpen(service->afc, probe, &directory) == 0) {
            api().AFCDirectoryClose(service->afc, directory);
            return true;
        }
    }
    return false;
}

AFCFileRef AfcOpenRead(AFCConnectionRef afc, const std::string& path) {
    AFCFileRef file = 0;
    return api().AFCFileRefOpen(afc, path.c_str(), kModeRead, &file) == 0 ? file : 0;
}

AFCFileRef AfcOpenWrite(AFCConnectionRef afc, const std::string& path) {
    AFCFileRef file = 0;
    return api().AFCFileRefOpen(afc, path.c_str(), kModeReadWrite, &file) == 0 ? file : 0;
}

uint64_t AfcTell(AFCConnectionRef afc, AFCFileRef file) {
    uint64_t position = 0;
    return api().AFCFileRefTell(afc, file, &position) == 0 ? position : ~uint64_t{0};
}

int32_t AfcSeek(AFCConnectionRef afc, AFCFileRef file, int64_t offset, uint64_t origin) {
    return api().AFCFileRefSeek(afc, file, offset, origin);
}

uint32_t AfcRead(AFCConnectionRef afc, AFCFileRef file, void* buffer, uint32_t length) {
    return api().AFCFileRefRead(afc, file, buffer, &length) == 0 ? length : 0;
}

uint32_t AfcWrite(AFCConnectionRef afc, AFCFileRef file, const void* buffer, uint32_t length) {
    return api().AFCFileRefWrite(afc, file, buffer, length) == 0 ? length : 0;
}

void AfcClose(AFCConnectionRef afc, AFCFileRef file) { api().AFCFileRefClose(afc, file); }

int AfcNotAtEnd(AFCConnectionRef afc, AFCFileRef file) {
    uint64_t position = AfcTell(afc, file);
    if (position == ~uint64_t{0}) return 1;
    if (AfcSeek(afc, file, 1, 1) != 0) return 1;
    AfcSeek(afc, file, static_cast<int64_t>(AfcTell(afc, file)) - 1, 0);
    return 0;
}

}  // namespace zeb
