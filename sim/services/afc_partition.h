// The media partition's size, for a device whose profile gives it one
// (Media.PartitionBytes). The bytes its files take are counted once, at
// first use, and from then on kept up to date by whoever changes the tree
// (AFC, a backup restore), so that AFC's device info and lockdown's disk
// usage tell a host what is really free. Without the key nothing is counted.
#pragma once

#include <plist/plist.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>

namespace zsim {

class MediaPartition {
public:
    MediaPartition(std::filesystem::path root, uint64_t capacity);

    uint64_t capacity() const { return capacity_; }
    uint64_t freeBytes();

    // Runs `change` under the partition's lock, given the bytes still free;
    // it returns by how much the bytes in use changed. Connections and a
    // restore that write at once thus never both take the last free bytes.
    void update(const std::function<int64_t(uint64_t freeBytes)>& change);

private:
    void countOnce();  // caller holds mutex_

    const std::filesystem::path root_;
    const uint64_t capacity_;
    std::mutex mutex_;
    bool counted_ = false;
    uint64_t used_ = 0;
};

// The bytes of the regular files at or under `path`, links not followed;
// 0 when nothing is there.
uint64_t bytesUnder(const std::filesystem::path& path);

// The partition of the device whose media root this is, made on first use;
// null when its profile sets no size.
MediaPartition* mediaPartitionFor(const std::filesystem::path& mediaRoot, plist_t profile);

}  // namespace zsim
