#include "direct_afc.h"

#include <cstdio>
#include <cstring>
#include <vector>

namespace fs = std::filesystem;

namespace {
constexpr uint32_t kChunk = 0x400000;
}

DirectAfc::DirectAfc(const std::string& udid) {
    if (idevice_new_with_options(&device, udid.c_str(), IDEVICE_LOOKUP_USBMUX) != IDEVICE_E_SUCCESS) return;
    if (afc_client_start_service(device, &afc, "zebrelo-bench") != AFC_E_SUCCESS) afc = nullptr;
}

DirectAfc::~DirectAfc() {
    if (afc) afc_client_free(afc);
    if (device) idevice_free(device);
}

int64_t DirectAfc::readFile(const std::string& devicePath, const fs::path& local) {
    uint64_t handle = 0;
    if (afc_file_open(afc, devicePath.c_str(), AFC_FOPEN_RDONLY, &handle) != AFC_E_SUCCESS) return -1;
    FILE* out = fopen(local.c_str(), "wb");
    std::vector<char> buffer(kChunk);
    int64_t total = 0;
    for (;;) {
        uint32_t got = 0;
        if (afc_file_read(afc, handle, buffer.data(), kChunk, &got) != AFC_E_SUCCESS || got == 0) break;
        if (out) fwrite(buffer.data(), 1, got, out);
        total += got;
    }
    if (out) fclose(out);
    afc_file_close(afc, handle);
    return total;
}

int64_t DirectAfc::writeFile(const fs::path& local, const std::string& devicePath) {
    FILE* in = fopen(local.c_str(), "rb");
    if (!in) return -1;
    uint64_t handle = 0;
    if (afc_file_open(afc, devicePath.c_str(), AFC_FOPEN_WRONLY, &handle) != AFC_E_SUCCESS) {
        fclose(in);
        return -1;
    }
    std::vector<char> buffer(kChunk);
    int64_t total = 0;
    size_t got = 0;
    while ((got = fread(buffer.data(), 1, kChunk, in)) > 0) {
        uint32_t wrote = 0;
        if (afc_file_write(afc, handle, buffer.data(), static_cast<uint32_t>(got), &wrote) != AFC_E_SUCCESS) break;
        total += wrote;
    }
    fclose(in);
    afc_file_close(afc, handle);
    return total;
}

int64_t DirectAfc::writeZeros(const std::string& devicePath, uint64_t bytes, uint32_t chunk) {
    uint64_t handle = 0;
    if (afc_file_open(afc, devicePath.c_str(), AFC_FOPEN_RW, &handle) != AFC_E_SUCCESS) return -1;
    const std::vector<char> zeros(chunk, 0);
    int64_t total = 0;
    while (static_cast<uint64_t>(total) < bytes) {
        uint32_t wrote = 0;
        if (afc_file_write(afc, handle, zeros.data(), chunk, &wrote) != AFC_E_SUCCESS || wrote != chunk) {
            total += wrote;
            break;
        }
        total += wrote;
    }
    afc_file_close(afc, handle);
    return total;
}

bool DirectAfc::remove(const std::string& devicePath) { return afc_remove_path(afc, devicePath.c_str()) == AFC_E_SUCCESS; }

int64_t DirectAfc::freeBytes() {
    char* value = nullptr;
    if (afc_get_device_info_key(afc, "FSFreeBytes", &value) != AFC_E_SUCCESS || !value) return -1;
    const int64_t bytes = strtoll(value, nullptr, 10);
    free(value);
    return bytes;
}

int64_t DirectAfc::copyTree(const std::string& devicePath, const fs::path& local) {
    char** names = nullptr;
    if (afc_read_directory(afc, devicePath.c_str(), &names) != AFC_E_SUCCESS) return 0;
    std::error_code error;
    fs::create_directories(local, error);
    int64_t files = 0;
    for (char** name = names; name && *name; ++name) {
        if (!strcmp(*name, ".") || !strcmp(*name, "..")) continue;
        std::string child = devicePath + "/" + *name;
        char** info = nullptr;
        if (afc_get_file_info(afc, child.c_str(), &info) != AFC_E_SUCCESS) continue;
        std::string type;
        for (char** kv = info; kv && kv[0] && kv[1]; kv += 2)
            if (!strcmp(kv[0], "st_ifmt")) type = kv[1];
        afc_dictionary_free(info);
        if (type == "S_IFDIR") files += copyTree(child, local / *name);
        else if (type == "S_IFREG" && readFile(child, local / *name) >= 0) ++files;
    }
    afc_dictionary_free(names);
    return files;
}
