// The "file" column of Manifest.db: an MBFile object in a keyed archive
// (binary plist), as backup readers on the host expect to unarchive it.
#pragma once

#include "core/backup_content.h"

#include <optional>
#include <string>

namespace zsim {

std::string archiveFileRecord(const BackupItem& item, uint64_t inode);
// The Size of an archived record; nullopt when the blob is not one.
std::optional<uint64_t> archivedFileSize(const void* blob, size_t size);

}  // namespace zsim
