// Manifest.db: the index of a backup, one row per file and folder in
// "Files" (fileID, domain, relativePath, flags 1 file / 2 folder, file =
// archived record), and the "Properties" table.
#pragma once

#include "core/backup_content.h"

#include <optional>
#include <string>
#include <vector>

namespace zsim {

// The database file's bytes.
std::string buildManifestDatabase(const BackupContent& content);

struct ManifestRecord {
    std::string fileID;
    std::string domain;
    std::string relativePath;
    int flags = 0;
    std::optional<uint64_t> size;  // from the archived record, when readable
};

constexpr int kManifestFile = 1;
constexpr int kManifestFolder = 2;

// The rows of a Manifest.db the host sent back; nullopt when it is no such
// database.
std::optional<std::vector<ManifestRecord>> readManifestDatabase(const std::string& bytes);

}  // namespace zsim
