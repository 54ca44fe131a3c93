// The profile's "Backup" dictionary: what a backup of the device holds and
// the faults it plays.
#pragma once

#include <plist/plist.h>

#include <optional>

namespace zsim {

enum class BackupContentKind {
    Small,  // a few hundred small files, the same on every run
    Large,  // about 2 GiB more in big generated files, for benchmarks
};

struct BackupProfile {
    BackupContentKind content = BackupContentKind::Small;
    // The device gives up with an error once a backup has come this far.
    std::optional<double> failAtPercent;
    // The device vanishes (closes the connection) once it has come this far.
    std::optional<double> dropAtPercent;
    // Pause before each batch of files, for tests that act in the middle.
    unsigned pageDelayMilliseconds = 0;
};

BackupProfile backupProfile(plist_t profile);

}  // namespace zsim
