// The reference side of the benchmark: the same transfers done directly
// with libimobiledevice's AFC client, no worker in between.
#pragma once

#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>

#include <filesystem>
#include <string>

class DirectAfc {
public:
    explicit DirectAfc(const std::string& udid);
    ~DirectAfc();
    bool ready() const { return afc != nullptr; }
    // Bytes read or written; -1 on failure.
    int64_t readFile(const std::string& devicePath, const std::filesystem::path& local);
    int64_t writeFile(const std::filesystem::path& local, const std::string& devicePath);
    // Zeros written into a new file in `chunk`-byte writes until `bytes` or
    // the first refused write; the bytes written.
    int64_t writeZeros(const std::string& devicePath, uint64_t bytes, uint32_t chunk);
    bool remove(const std::string& devicePath);
    // "FSFreeBytes" of the device info; -1 when it cannot be read.
    int64_t freeBytes();
    // Files copied below `devicePath` into `local`.
    int64_t copyTree(const std::string& devicePath, const std::filesystem::path& local);

private:
    idevice_t device = nullptr;
    afc_client_t afc = nullptr;
};
