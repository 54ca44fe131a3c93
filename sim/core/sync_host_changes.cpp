#include "core/sync_host_changes.h"

#include <algorithm>
#include <climits>
#include <optional>
#include <vector>

namespace zsim {
namespace {

struct Write {
    std::string key;
    plist_t record;
    int entity;
};

std::optional<std::string> resolve(const SyncRecordSet& records, const SyncRemapTable& remap, const std::string& id) {
    if (records.contains(id)) return id;
    auto it = remap.find(id);
    if (it != remap.end() && records.contains(it->second)) return it->second;
    return std::nullopt;
}

// Rewrites every link to device ids, leaving out ids that name nothing.
// Answers the record's owner (empty when it names none that exists).
std::string resolveLinks(const SyncRecordSet& records, const SyncRemapTable& remap, plist_t fields,
                         const SyncEntity& entity) {
    std::string owner;
    for (const char* key : records.dataClass().linkKeys) {
        plist_t links = plist_dict_get_item(fields, key);
        if (!links || plist_get_node_type(links) != PLIST_ARRAY) continue;
        plist_t resolved = plist_new_array();
        for (const auto& id : linkedIds(fields, key)) {
            if (auto device = resolve(records, remap, id)) {
                if (entity.ownerLink && owner.empty() && std::string(key) == entity.ownerLink) owner = *device;
                plist_array_append_item(resolved, plist_new_string(device->c_str()));
            }
        }
        plist_dict_set_item(fields, key, resolved);
    }
    return owner;
}

bool isRemoval(plist_t value) {
    return plist_get_node_type(value) == PLIST_STRING &&
           std::string(plist_get_string_ptr(value, nullptr)) == kEmptyParameter;
}

}  // namespace

PlistPtr applyHostChanges(SyncRecordSet& records, plist_t entities, SyncRemapTable& remap) {
    PlistPtr answer = adopt(plist_new_dict());
    if (!entities || plist_get_node_type(entities) != PLIST_DICT) return answer;
    const SyncDataClass& cls = records.dataClass();

    std::vector<std::string> removals;
    std::vector<Write> writes;
    plist_dict_iter it = nullptr;
    plist_dict_new_iter(entities, &it);
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(entities, it, &key, &value);
        if (!key) break;
        if (isRemoval(value)) {
            removals.emplace_back(key);
        } else if (auto entityName = dictString(value, kEntityNameKey)) {
            writes.push_back({key, value, cls.entityIndex(*entityName)});
        }
        free(key);
    }
    free(it);

    for (const auto& key : removals)
        if (auto id = resolve(records, remap, key)) records.erase(*id);

    // Parents before children, so that a batch may carry both.
    auto place = [&cls](const Write& w) {
        return std::make_pair(cls.entity(w.entity).rank, w.entity < 0 ? INT_MAX : w.entity);
    };
    std::stable_sort(writes.begin(), writes.end(),
                     [&place](const Write& a, const Write& b) { return place(a) < place(b); });

    for (const auto& write : writes) {
        const auto target = resolve(records, remap, write.key);
        const SyncRecordSet::Record* existing = target ? records.find(*target) : nullptr;
        // An update keeps what the record is.
        const int entityIndex = existing ? existing->entity : write.entity;
        const SyncEntity& entity = cls.entity(entityIndex);
        PlistPtr fields = adopt(plist_copy(write.record));
        if (existing) {
            const auto kept = dictString(existing->fields.get(), kEntityNameKey).value_or("");
            plist_dict_set_item(fields.get(), kEntityNameKey, plist_new_string(kept.c_str()));
        }
        const std::string owner = resolveLinks(records, remap, fields.get(), entity);
        if (entity.needsOwner && owner.empty()) continue;
        std::string id;
        if (target) {
            id = *target;
        } else {
            id = records.newId(entity, owner);
            remap[write.key] = id;
        }
        records.put(id, std::move(fields), true);
        plist_dict_set_item(answer.get(), write.key.c_str(), plist_new_string(id.c_str()));
    }
    return answer;
}

}  // namespace zsim
