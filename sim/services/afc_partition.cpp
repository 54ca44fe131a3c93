#include "afc_partition.h"

#include <sys/stat.h>

#include <map>
#include <memory>
#include <string>
#include <system_error>

namespace zsim {
namespace fs = std::filesystem;

namespace {

// Read with libplist alone: the file services are built without the
// simulator's plist helpers.
uint64_t partitionBytes(plist_t profile) {
    plist_t media = profile ? plist_dict_get_item(profile, "Media") : nullptr;
    plist_t size = media && plist_get_node_type(media) == PLIST_DICT ? plist_dict_get_item(media, "PartitionBytes")
                                                                      : nullptr;
    uint64_t bytes = 0;
    if (size && plist_get_node_type(size) == PLIST_UINT) plist_get_uint_val(size, &bytes);
    return bytes;
}

}  // namespace

MediaPartition::MediaPartition(fs::path root, uint64_t capacity) : root_(std::move(root)), capacity_(capacity) {}

void MediaPartition::countOnce() {
    if (counted_) return;
    used_ = bytesUnder(root_);
    counted_ = true;
}

uint64_t MediaPartition::freeBytes() {
    std::lock_guard<std::mutex> lock(mutex_);
    countOnce();
    return used_ < capacity_ ? capacity_ - used_ : 0;
}

void MediaPartition::update(const std::function<int64_t(uint64_t)>& change) {
    std::lock_guard<std::mutex> lock(mutex_);
    countOnce();
    const int64_t delta = change(used_ < capacity_ ? capacity_ - used_ : 0);
    if (delta < 0 && static_cast<uint64_t>(-delta) > used_) {
        used_ = 0;
    } else {
        used_ += static_cast<uint64_t>(delta);
    }
}

uint64_t bytesUnder(const fs::path& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return 0;
    if (S_ISREG(st.st_mode)) return static_cast<uint64_t>(st.st_size);
    if (!S_ISDIR(st.st_mode)) return 0;
    uint64_t total = 0;
    std::error_code ec;
    for (fs::recursive_directory_iterator it(path, ec), end; !ec && it != end; it.increment(ec))
        if (it->is_regular_file(ec) && !it->is_symlink(ec)) total += it->file_size(ec);
    return total;
}

MediaPartition* mediaPartitionFor(const fs::path& mediaRoot, plist_t profile) {
    const uint64_t capacity = partitionBytes(profile);
    if (capacity == 0 || mediaRoot.empty()) return nullptr;
    static std::mutex mutex;
    // Kept for the simulator's life, like the device's other memory.
    static std::map<std::string, std::unique_ptr<MediaPartition>> partitions;
    std::lock_guard<std::mutex> lock(mutex);
    auto& slot = partitions[mediaRoot.string()];
    if (!slot) slot = std::make_unique<MediaPartition>(mediaRoot, capacity);
    return slot.get();
}

}  // namespace zsim
