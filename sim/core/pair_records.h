// The host side's pair records and system BUID, which usbmuxd keeps for its
// clients (ReadPairRecord, SavePairRecord, DeletePairRecord, ReadBUID).
#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

namespace zsim {

class PairRecordStore {
public:
    explicit PairRecordStore(std::filesystem::path dir) : dir_(std::move(dir)) {}

    std::string systemBuid();
    std::optional<std::string> read(const std::string& udid);
    bool save(const std::string& udid, const std::string& data);
    bool remove(const std::string& udid);

private:
    std::filesystem::path dir_;
    std::mutex mutex_;
};

}  // namespace zsim
