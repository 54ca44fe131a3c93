// The device's own state in a backup, beside the generated content: every
// file and folder of the media partition (CameraRollDomain for DCIM and
// PhotoData, MediaDomain for the rest, both under "Media/"), read from disk
// while it is sent, and each sync store as a HomeDomain file in the form
// it persists in. The same mapping tells a restore where files go back.
#pragma once

#include "core/backup_content.h"
#include "core/sync_data_class.h"
#include "service.h"

#include <optional>
#include <string>
#include <vector>

namespace zsim {

std::vector<BackupItem> deviceBackupItems(const ServiceContext& ctx);

// The generated content with the device's items; a device item takes the
// place of a generated one with the same file ID.
BackupContent withDeviceItems(const BackupContent& generated, std::vector<BackupItem> device);

// Where a file of the media domains belongs in the partition, relative to
// its root ("" for the root itself); nullopt for other domains and for
// paths that would leave the partition (absolute, "..", empty components).
std::optional<std::string> mediaPathOf(const std::string& domain, const std::string& relativePath);

// The class whose store a backup file holds; null for every other file.
const SyncDataClass* syncClassOf(const std::string& domain, const std::string& relativePath);

// The host's own working files at the partition's top (its sync lock, the
// apps it leaves for a restore): never backed up, never removed by one.
bool isHostFile(const std::string& mediaPath);

}  // namespace zsim
