// Applying one batch of records a host sends (SDMessageProcessChanges) to
// a data class's records.
#pragma once

#include "core/plist_util.h"
#include "core/sync_record_set.h"

#include <string>
#include <unordered_map>

namespace zsim {

inline constexpr const char* kEmptyParameter = "___EmptyParameterString___";

// Host id -> device id for the records created in one session: later
// batches of the session may link to a record by the id the host gave it.
using SyncRemapTable = std::unordered_map<std::string, std::string>;

// `entities` maps host keys to records, or to the EMPTY string for a
// removal. A key that names a device record (directly or through `remap`)
// updates it, any other creates a record with a device id. Records without
// an entity name, and children whose owner exists neither way, are
// dropped. Answers {host key: device id} for every record created or
// updated; new ids also go into `remap`.
PlistPtr applyHostChanges(SyncRecordSet& records, plist_t entities, SyncRemapTable& remap);

}  // namespace zsim
