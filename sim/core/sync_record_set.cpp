#include "core/sync_record_set.h"

#include <algorithm>

namespace zsim {

std::vector<std::string> linkedIds(plist_t fields, const char* linkKey) {
    std::vector<std::string> ids;
    plist_t links = plist_dict_get_item(fields, linkKey);
    if (!links || plist_get_node_type(links) != PLIST_ARRAY) return ids;
    for (uint32_t i = 0; i < plist_array_get_size(links); ++i) {
        plist_t item = plist_array_get_item(links, i);
        if (plist_get_node_type(item) != PLIST_STRING) continue;
        ids.emplace_back(plist_get_string_ptr(item, nullptr));
    }
    return ids;
}

const SyncRecordSet::Record* SyncRecordSet::find(const std::string& id) const {
    auto it = records_.find(id);
    return it == records_.end() ? nullptr : &it->second;
}

void SyncRecordSet::link(const std::string& id, plist_t fields) {
    for (const char* key : cls_.linkKeys)
        for (auto& target : linkedIds(fields, key)) referrers_[target].push_back(id);
}

void SyncRecordSet::unlink(const std::string& id, plist_t fields) {
    for (const char* key : cls_.linkKeys) {
        for (auto& target : linkedIds(fields, key)) {
            auto it = referrers_.find(target);
            if (it == referrers_.end()) continue;
            auto& list = it->second;
            auto pos = std::find(list.begin(), list.end(), id);
            if (pos != list.end()) list.erase(pos);
            if (list.empty()) referrers_.erase(it);
        }
    }
}

void SyncRecordSet::markChanged(Entry& entry) {
    Record& record = entry.second;
    if (record.changedAt) byChange_.erase(record.changedAt);
    record.changedAt = ++generation_;
    byChange_[record.changedAt] = &entry;
}

bool SyncRecordSet::put(const std::string& id, PlistPtr fields, bool changed) {
    const auto entityName = dictString(fields.get(), kEntityNameKey);
    if (!entityName) return false;
    const int entity = cls_.entityIndex(*entityName);
    const int rank = cls_.entity(entity).rank;
    auto [it, added] = records_.try_emplace(id);
    Record& record = it->second;
    if (added) {
        ids_.note(id);
    } else {
        unlink(id, record.fields.get());
        if (record.order.rank != rank) listing_.erase(record.order);
    }
    if (added || record.order.rank != rank) {
        record.order = {rank, ++arrivals_};
        listing_[record.order] = &*it;
    }
    record.fields = std::move(fields);
    record.entity = entity;
    link(id, record.fields.get());
    if (changed) markChanged(*it);
    return true;
}

void SyncRecordSet::removeFromLinks(Entry& entry, const std::string& target) {
    Record& record = entry.second;
    for (const char* key : cls_.linkKeys) {
        plist_t links = plist_dict_get_item(record.fields.get(), key);
        if (!links || plist_get_node_type(links) != PLIST_ARRAY) continue;
        for (uint32_t i = plist_array_get_size(links); i-- > 0;) {
            plist_t item = plist_array_get_item(links, i);
            if (plist_get_node_type(item) == PLIST_STRING && target == plist_get_string_ptr(item, nullptr))
                plist_array_remove_item(links, i);
        }
    }
    markChanged(entry);
}

void SyncRecordSet::erase(const std::string& first) {
    std::vector<std::string> pending{first};
    while (!pending.empty()) {
        const std::string id = std::move(pending.back());
        pending.pop_back();
        auto it = records_.find(id);
        if (it == records_.end()) continue;
        auto refs = referrers_.find(id);
        if (refs != referrers_.end()) {
            std::vector<std::string> referrers = std::move(refs->second);
            referrers_.erase(refs);
            for (auto& referrer : referrers) {
                auto other = records_.find(referrer);
                if (referrer == id || other == records_.end()) continue;
                const SyncEntity& entity = cls_.entity(other->second.entity);
                const auto owners = entity.ownerLink ? linkedIds(other->second.fields.get(), entity.ownerLink)
                                                     : std::vector<std::string>();
                if (std::find(owners.begin(), owners.end(), id) != owners.end())
                    pending.push_back(referrer);
                else
                    removeFromLinks(*other, id);
            }
        }
        Record& record = it->second;
        unlink(id, record.fields.get());
        listing_.erase(record.order);
        if (record.changedAt) byChange_.erase(record.changedAt);
        records_.erase(it);
        ++generation_;
    }
}

void SyncRecordSet::clear() {
    listing_.clear();
    byChange_.clear();
    referrers_.clear();
    records_.clear();
    ids_.clear();
    ++generation_;
}

std::string SyncRecordSet::newId(const SyncEntity& entity, const std::string& owner) {
    const bool child = entity.category > 0;
    const std::string prefix = child ? std::to_string(entity.category) + "/" + owner + "/" : entity.idPrefix;
    return ids_.take(prefix, child ? 0 : 1, [this](const std::string& id) { return contains(id); });
}

void SyncRecordSet::forEachAfter(const std::optional<SyncOrder>& after, const Visit& visit) const {
    for (auto it = after ? listing_.upper_bound(*after) : listing_.begin(); it != listing_.end(); ++it)
        if (!visit(it->second->first, it->second->second)) return;
}

void SyncRecordSet::forEachChangedSince(uint64_t since, const Visit& visit) const {
    std::vector<std::pair<SyncOrder, const Entry*>> changed;
    for (auto it = byChange_.upper_bound(since); it != byChange_.end(); ++it)
        changed.emplace_back(it->second->second.order, it->second);
    std::sort(changed.begin(), changed.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& [order, entry] : changed)
        if (!visit(entry->first, entry->second)) return;
}

}  // namespace zsim
