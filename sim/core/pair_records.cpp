#include "core/pair_records.h"

#include "core/profile.h"

#include <openssl/rand.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <system_error>

namespace zsim {
namespace fs = std::filesystem;

std::string PairRecordStore::systemBuid() {
    std::lock_guard<std::mutex> lock(mutex_);
    fs::path file = dir_ / "SystemBUID";
    std::ifstream in(file);
    std::string buid;
    if (in && std::getline(in, buid) && !buid.empty()) return buid;
    unsigned char b[16];
    RAND_bytes(b, sizeof(b));
    b[6] = static_cast<unsigned char>((b[6] & 0x0F) | 0x40);
    b[8] = static_cast<unsigned char>((b[8] & 0x3F) | 0x80);
    char text[40];
    snprintf(text, sizeof(text), "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b[0],
             b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
    std::error_code ec;
    fs::create_directories(dir_, ec);
    std::ofstream(file) << text << "\n";
    return text;
}

std::optional<std::string> PairRecordStore::read(const std::string& udid) {
    if (!isSafeUdid(udid)) return std::nullopt;
    std::lock_guard<std::mutex> lock(mutex_);
    std::ifstream in(dir_ / (udid + ".plist"), std::ios::binary);
    if (!in) return std::nullopt;
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

bool PairRecordStore::save(const std::string& udid, const std::string& data) {
    if (!isSafeUdid(udid) || data.empty()) return false;
    std::lock_guard<std::mutex> lock(mutex_);
    std::error_code ec;
    fs::create_directories(dir_, ec);
    fs::path tmp = dir_ / (udid + ".plist.tmp");
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        out.write(data.data(), static_cast<std::streamsize>(data.size()));
        if (!out) return false;
    }
    fs::rename(tmp, dir_ / (udid + ".plist"), ec);
    return !ec;
}

bool PairRecordStore::remove(const std::string& udid) {
    if (!isSafeUdid(udid)) return false;
    std::lock_guard<std::mutex> lock(mutex_);
    std::error_code ec;
    return fs::remove(dir_ / (udid + ".plist"), ec);
}

}  // namespace zsim
