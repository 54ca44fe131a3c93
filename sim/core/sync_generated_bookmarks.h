// Made-up bookmarks for profiles that need many ("Sync" / "Bookmarks" /
// "Generate"), the same on every run.
#pragma once

#include "core/sync_generated_fields.h"
#include "core/sync_profile.h"

namespace zsim {

// Appends `Folders` top-level folders ("f-N"), then `Count` bookmarks
// ("b-N") dealt out over them in turn, each at the next position of its
// folder; without folders the bookmarks sit at the top.
void generateBookmarks(plist_t generate, GeneratedIds& ids, SyncRecordList& out);

}  // namespace zsim
