// The records of one data class as the device holds them: by id, in the
// order pages list them (parents first), by the change that last touched
// them, and who links to whom, so that deleting a contact takes its
// children along and takes it out of every group. Not locked: SyncStore
// guards it.
#pragma once

#include "core/plist_util.h"
#include "core/sync_data_class.h"
#include "core/sync_record_ids.h"

#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace zsim {

// A record's place in the listing: rank of its entity, then arrival.
struct SyncOrder {
    int rank = 0;
    uint64_t seq = 0;
    auto operator<=>(const SyncOrder&) const = default;
};

class SyncRecordSet {
public:
    struct Record {
        PlistPtr fields;  // the record as on the wire, entity name included
        int entity = -1;  // index into the class's entities
        SyncOrder order;
        uint64_t changedAt = 0;  // generation of its last change; 0 as loaded
    };
    using Visit = std::function<bool(const std::string& id, const Record& record)>;

    explicit SyncRecordSet(const SyncDataClass& cls) : cls_(cls) {}
    const SyncDataClass& dataClass() const { return cls_; }

    const Record* find(const std::string& id) const;
    bool contains(const std::string& id) const { return records_.count(id) != 0; }
    size_t size() const { return records_.size(); }

    // Counts every change; a session remembers it to know what came later.
    uint64_t generation() const { return generation_; }
    void setGeneration(uint64_t generation) { generation_ = generation; }

    // Adds the record, or replaces the fields of the one with that id (it
    // keeps its place). `changed` false while loading. False without an
    // entity name.
    bool put(const std::string& id, PlistPtr fields, bool changed);
    // Removes the record, what belongs to it, and its id from other
    // records' links (those records count as changed).
    void erase(const std::string& id);
    void clear();

    // A fresh id for a new record of `entity`; `owner` is the device id of
    // the record it belongs to (for child categories).
    std::string newId(const SyncEntity& entity, const std::string& owner);

    // Listing order, from just after `after` (from the start without it),
    // until `visit` returns false.
    void forEachAfter(const std::optional<SyncOrder>& after, const Visit& visit) const;
    // Records changed after generation `since`, in listing order.
    void forEachChangedSince(uint64_t since, const Visit& visit) const;

private:
    using Entry = std::unordered_map<std::string, Record>::value_type;

    void link(const std::string& id, plist_t fields);
    void unlink(const std::string& id, plist_t fields);
    void markChanged(Entry& entry);
    void removeFromLinks(Entry& entry, const std::string& target);

    const SyncDataClass& cls_;
    std::unordered_map<std::string, Record> records_;
    // Point into records_ (stable while the record lives).
    std::map<SyncOrder, Entry*> listing_;
    std::map<uint64_t, Entry*> byChange_;
    std::unordered_map<std::string, std::vector<std::string>> referrers_;
    SyncRecordIds ids_;
    uint64_t generation_ = 0;
    uint64_t arrivals_ = 0;
};

// The record ids a link field names (empty unless it is an array of strings).
std::vector<std::string> linkedIds(plist_t fields, const char* linkKey);

}  // namespace zsim
