// File operations on a device's media partition over an AFC connection.
// Device paths are UTF-8 with forward slashes and are passed on as given.
#pragma once

#include "zeb_device.h"

#include <cstdint>
#include <filesystem>
#include <string>

struct AfcFileInfo {
    int32_t nlink = 0;
    int32_t blocks = 0;
    int64_t size = 0;
    int64_t birth_time = 0;         // seconds since 1970
    int64_t modification_time = 0;  // seconds since 1970
    std::string file_type;          // "S_IFDIR", "S_IFREG", "S_IFLNK", ...
    std::string link_target;        // "LinkTarget" when the entry is a link
};

inline constexpr size_t kTransferBufferSize = 0x400000;

namespace zeb {

// The calling thread's 4 MiB transfer buffer, made on first use.
unsigned char* threadTransferBuffer();

bool AfcGetFileInfo(AFCConnectionRef afc, const std::string& path, AfcFileInfo& info);
bool AfcRemoveFile(AFCConnectionRef afc, const std::string& path);
bool AfcRemoveTree(AFCConnectionRef afc, const std::string& path, bool removeRoot, bool nested);
bool AfcMakeDirectory(AFCConnectionRef afc, const std::string& path);
// Copies a device folder into a local one; the result is always false.
bool AfcCopyTreeToLocal(AFCConnectionRef afc, const std::string& devicePath, const std::filesystem::path& localDir);
bool AfcUploadFile(AFCConnectionRef afc, const std::filesystem::path& localPath, const std::string& devicePath);
// Into `localPath` when given, otherwise into `out`.
bool AfcDownloadFile(AFCConnectionRef afc, const std::string& devicePath, const std::filesystem::path* localPath,
                     std::string* out);
bool IsJailbreak(ZEBDevice& device);

AFCFileRef AfcOpenRead(AFCConnectionRef afc, const std::string& path);
AFCFileRef AfcOpenWrite(AFCConnectionRef afc, const std::string& path);
uint64_t AfcTell(AFCConnectionRef afc, AFCFileRef file);
int32_t AfcSeek(AFCConnectionRef afc, AFCFileRef file, int64_t offset, uint64_t origin);
uint32_t AfcRead(AFCConnectionRef afc, AFCFileRef file, void* buffer, uint32_t length);
uint32_t AfcWrite(AFCConnectionRef afc, AFCFileRef file, const void* buffer, uint32_t length);
void AfcClose(AFCConnectionRef afc, AFCFileRef file);
// 0 when a byte follows the current position, 1 when not.
int AfcNotAtEnd(AFCConnectionRef afc, AFCFileRef file);

}  // namespace zeb
