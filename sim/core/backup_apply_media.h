// The media partition's side of a restore. Files arrive into a staging
// folder of their own in the device's state folder (the partition's file
// system, so that putting one in place is a rename), which goes away with
// the staging object together with whatever was not applied. They are put
// in place without ever writing through a link, and counted against the
// partition's size when it has one.
#pragma once

#include "core/sync_data_class.h"
#include "service.h"

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace zsim {

class RestoreStaging {
public:
    explicit RestoreStaging(const ServiceContext& ctx);
    ~RestoreStaging();
    RestoreStaging(const RestoreStaging&) = delete;
    RestoreStaging& operator=(const RestoreStaging&) = delete;

    // A fresh file to write one file's bytes to; empty when the device has
    // no media partition or state folder to put it in.
    std::filesystem::path nextFile();
    // The partition's regular file at `path`, reached without links; empty
    // when there is none.
    std::filesystem::path inPlace(const std::string& path) const;

    struct MediaFile {
        std::filesystem::path staged;
        std::string path;  // in the partition
    };
    std::vector<MediaFile> media;
    std::vector<std::string> folders;
    // Every file path of the media domains the backup holds, arrived or not.
    std::set<std::string> listed;
    // Sync stores the backup holds, in their serialized form.
    std::vector<std::pair<const SyncDataClass*, std::string>> stores;

private:
    const ServiceContext& ctx_;
    std::filesystem::path dir_;
    uint64_t files_ = 0;
};

// False when the media files (path, size) would not fit the partition's
// free bytes, counting the files they replace.
bool restoreFits(const ServiceContext& ctx, const std::vector<std::pair<std::string, uint64_t>>& mediaFiles);

// Folders made, staged files put in place; with `removeNotRestored` the
// files the backup does not hold are removed (the host's own are kept).
void applyMedia(const ServiceContext& ctx, RestoreStaging& staging, bool removeNotRestored);

}  // namespace zsim
