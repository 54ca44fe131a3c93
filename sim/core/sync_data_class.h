// The data classes com.apple.mobilesync serves and what the device knows of
// their entities: the order records are listed in, how new records are
// named, and which link makes a record part of another one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zsim {

inline constexpr const char* kEntityNameKey = "com.apple.syncservices.RecordEntityName";

struct SyncEntity {
    const char* name;
    // Pages list lower ranks first, so hosts meet parents before children.
    int rank;
    // New records are named prefix + number. A child category (> 0) names
    // them "<category>/<owner id>/<n>" instead, as contact children are.
    const char* idPrefix;
    int category;
    // The link naming the record this one belongs to: it is deleted with
    // it. Null for records that belong to nothing.
    const char* ownerLink;
    // Dropped when its owner link names no record.
    bool needsOwner;
};

struct SyncDataClass {
    const char* name;       // on the wire, e.g. "com.apple.Contacts"
    const char* storeName;  // profile key and state file name, e.g. "Contacts"
    uint64_t version;
    std::vector<SyncEntity> entities;
    // Fields that hold arrays of record ids.
    std::vector<const char*> linkKeys;
    // Entities the device does not know are still kept, under this.
    SyncEntity unknownEntity;
    // Contacts answer GetChanges in two pages: parents, then children.
    bool changesInTwoPages;

    // Index into `entities`, or -1 for an entity the class does not list.
    int entityIndex(const std::string& entityName) const;
    const SyncEntity& entity(int index) const { return index < 0 ? unknownEntity : entities[index]; }
};

// Null for classes the device keeps no store for (e.g. com.apple.MailAccounts).
const SyncDataClass* findSyncDataClass(const std::string& name);
const std::vector<SyncDataClass>& syncDataClasses();

}  // namespace zsim
