// Made-up notes for profiles that need many ("Sync" / "Notes" /
// "Generate"), the same on every run.
#pragma once

#include "core/sync_generated_fields.h"
#include "core/sync_profile.h"

namespace zsim {

// Appends `Count` notes ("n-N"), an hour apart; some are HTML, and every
// tenth has no author, as notes written on the device itself.
void generateNotes(plist_t generate, GeneratedIds& ids, SyncRecordList& out);

}  // namespace zsim
