// The property list files of a backup folder as the host reads them back
// (the listing, the restore), through zeb::readRegularFile. Whoever can
// write into the folder decides what lies there, so each is read only as a
// regular file and up to a bound far above any real one: a link to an
// endless device or a huge file is then an unreadable file, not a worker
// that grows until it is killed.
#pragma once

#include <cstddef>

namespace backup {

// A real "Manifest.plist" holds the device's lockdown values, the key bag
// and the apps' identifiers and paths: a few hundred KiB to a few MiB.
inline constexpr size_t kManifestPlistLimit = size_t{64} << 20;
// A real "Info.plist" carries every store app's sale record, store data and
// icon: some tens of MiB for a device full of apps.
inline constexpr size_t kInfoPlistLimit = size_t{256} << 20;

}  // namespace backup
