// What a restore does to the device once every file of the backup arrived
// whole: the media partition's files put in place, the backup's user apps
// installed, the sync stores replaced and, when the host asks for it, the
// backup's settings (the device name) taken.
#pragma once

#include "core/backup_apply_media.h"
#include "service.h"

namespace zsim {

// The host's Options, with the device's defaults for keys left out.
struct RestoreOptions {
    bool systemFiles = true;         // RestoreSystemFiles: the sync stores as well
    bool preserveSettings = true;    // RestorePreserveSettings: keep the device's name
    bool removeNotRestored = false;  // RemoveItemsNotRestored: media files and user apps
};

RestoreOptions restoreOptions(plist_t options);

void applyRestore(const ServiceContext& ctx, RestoreStaging& staging, plist_t manifest, const RestoreOptions& options);

}  // namespace zsim
