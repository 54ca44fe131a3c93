// The files of a restore as they come from the host: each checked whole
// (the size Manifest.db gives), media files written to the staging folder,
// sync stores kept, everything else counted and dropped. A media file the
// partition already holds byte for byte is only compared, never written
// again (restoring a backup onto the device it came from writes nothing).
// Bytes count towards the profile's DropAtPercent as they arrive.
#pragma once

#include "core/backup_apply_media.h"
#include "core/backup_download.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zsim {

struct WantedFile {
    std::string hostPath;  // S/xx/<fileID>
    std::optional<uint64_t> size;
    std::optional<std::string> mediaPath;  // goes into the media partition
    const SyncDataClass* store = nullptr;  // replaces this sync store
};

class RestoreReceiver : public DownloadSink {
public:
    // `dropAt`: the device vanishes once this many bytes have come.
    RestoreReceiver(RestoreStaging& staging, std::optional<uint64_t> dropAt);
    ~RestoreReceiver() override;

    // The page about to be asked for; afterwards, files of it that did not
    // come whole count as missing.
    void expect(const std::vector<const WantedFile*>& page);
    void endPage();

    size_t missing() const { return missing_; }
    uint64_t received() const { return received_; }

    bool begin(const std::string& path) override;
    bool data(const char* bytes, size_t n) override;
    bool end(bool ok, const std::string& error) override;

private:
    void closeFile();
    // Starts the staged copy once the bytes differ from the file in place,
    // with the `prefix` bytes that matched; false when it cannot be made.
    bool startStaging(uint64_t prefix);
    bool sameAsInPlace(const char* bytes, size_t n);

    RestoreStaging& staging_;
    const std::optional<uint64_t> dropAt_;
    std::map<std::string, const WantedFile*> page_;
    const WantedFile* current_ = nullptr;
    uint64_t currentSize_ = 0;
    bool currentFailed_ = false;
    int fd_ = -1;
    int inPlaceFd_ = -1;  // the partition's file being compared with
    std::vector<char> compared_;
    std::string stagedPath_;
    std::string storeBytes_;
    size_t missing_ = 0;
    uint64_t received_ = 0;
};

}  // namespace zsim
