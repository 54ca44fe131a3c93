// What a backup of the simulated device holds: the files and folders of its
// domains, the same on every run. Small files carry real content (the SMS
// database, preference plists, photos); the rest is generated from a seed
// while it is sent, so a large backup never sits in memory.
#pragma once

#include "core/backup_profile.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace zsim {

struct BackupItem {
    std::string domain;        // e.g. "HomeDomain"
    std::string relativePath;  // e.g. "Library/SMS/sms.db"
    std::string fileID;        // SHA-1 of "<domain>-<relativePath>", lower-case hex
    bool directory = false;
    uint64_t size = 0;
    int64_t modified = 0;  // Unix seconds
    // The file's bytes when they are made up front; null for generated data.
    std::shared_ptr<const std::string> bytes;
    uint64_t seed = 0;  // generated data
    // A file of the device's own, read while it is sent.
    std::filesystem::path source;
};

struct BackupContent {
    std::vector<BackupItem> items;  // folders and files
    uint64_t fileBytes = 0;
    size_t fileCount = 0;
};

// Made once per process and kind.
const BackupContent& backupContent(BackupContentKind kind);

std::string backupFileId(const std::string& domain, const std::string& relativePath);

}  // namespace zsim
