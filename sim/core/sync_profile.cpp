#include "core/sync_profile.h"

#include "core/sync_generated_bookmarks.h"
#include "core/sync_generated_calendars.h"
#include "core/sync_generated_contacts.h"
#include "core/sync_generated_notes.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace zsim {
namespace {

bool isDecimal(const char* id) {
    if (!*id) return false;
    for (const char* p = id; *p; ++p)
        if (*p < '0' || *p > '9') return false;
    return strlen(id) <= 18;
}

}  // namespace

SyncSettings syncSettings(plist_t profile) {
    SyncSettings settings;
    plist_t sync = dictDict(profile, "Sync");
    if (!sync) return settings;
    if (auto n = dictUInt(sync, "BatchSize"); n && *n > 0) settings.batchSize = *n;
    settings.dropAfterPages = dictUInt(sync, "DropAfterPages").value_or(0);
    settings.dropOnHostChanges = dictBool(sync, "DropOnHostChanges").value_or(false);
    return settings;
}

plist_t syncClassProfile(plist_t profile, const SyncDataClass& cls) {
    return dictDict(dictDict(profile, "Sync"), cls.storeName);
}

SyncRecordList profileRecords(const SyncDataClass& cls, plist_t classProfile) {
    SyncRecordList records;
    uint64_t highestNumber = 0;
    SyncRecordIds listedIds;
    if (plist_t listed = dictDict(classProfile, "Records")) {
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(listed, &it);
        for (;;) {
            char* id = nullptr;
            plist_t record = nullptr;
            plist_dict_next_item(listed, it, &id, &record);
            if (!id) break;
            if (dictString(record, kEntityNameKey)) {
                if (isDecimal(id)) highestNumber = std::max<uint64_t>(highestNumber, strtoull(id, nullptr, 10));
                listedIds.note(id);
                records.emplace_back(id, adopt(plist_copy(record)));
            }
            free(id);
        }
        free(it);
    }
    plist_t generate = dictDict(classProfile, "Generate");
    if (!generate) return records;
    const std::string name = cls.storeName;
    GeneratedIds ids(listedIds);
    if (name == "Contacts") generateContacts(generate, highestNumber + 1, records);
    if (name == "Calendars") generateCalendars(generate, ids, records);
    if (name == "Bookmarks") generateBookmarks(generate, ids, records);
    if (name == "Notes") generateNotes(generate, ids, records);
    return records;
}

}  // namespace zsim
