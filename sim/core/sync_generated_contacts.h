// Made-up contacts for profiles that need many ("Sync" / "Contacts" /
// "Generate"): believable names from short lists, the same on every run.
#pragma once

#include "core/sync_profile.h"

#include <cstdint>

namespace zsim {

// Appends `Count` contacts with ids from `firstId` on, each with
// `ChildrenPerContact` children (phone numbers and e-mail addresses in
// turn) and, with `NotesBytes`, a note of that many bytes.
void generateContacts(plist_t generate, uint64_t firstId, SyncRecordList& out);

}  // namespace zsim
