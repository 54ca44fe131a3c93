// What a profile's "Sync" dictionary says (sim/README.md, "Sync"): page
// size, fault switches, and the records each data class starts with.
#pragma once

#include "core/plist_util.h"
#include "core/sync_data_class.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zsim {

struct SyncSettings {
    uint64_t batchSize = 100;
    // Faults: close the connection after this many pages of a full read
    // (0: never), or on the first batch of records a host sends.
    uint64_t dropAfterPages = 0;
    bool dropOnHostChanges = false;
};

SyncSettings syncSettings(plist_t profile);

// The class's dictionary under "Sync", or null.
plist_t syncClassProfile(plist_t profile, const SyncDataClass& cls);

using SyncRecordList = std::vector<std::pair<std::string, PlistPtr>>;

// The listed "Records", then the generated ones.
SyncRecordList profileRecords(const SyncDataClass& cls, plist_t classProfile);

}  // namespace zsim
