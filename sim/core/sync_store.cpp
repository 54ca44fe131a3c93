#include "core/sync_store.h"

#include "core/sync_profile.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <memory>

namespace zsim {
namespace fs = std::filesystem;

namespace {

class PageBuilder {
public:
    PageBuilder() : records_(adopt(plist_new_dict())) {}

    void add(const std::string& id, const SyncRecordSet::Record& record) {
        plist_dict_set_item(records_.get(), id.c_str(), plist_copy(record.fields.get()));
        const auto name = plist_dict_get_item(record.fields.get(), kEntityNameKey);
        const std::string entity = plist_get_string_ptr(name, nullptr);
        if (entity != lastEntity_) {
            lastEntity_ = entity;
            if (std::find(names_.begin(), names_.end(), entity) == names_.end()) names_.push_back(entity);
        }
    }

    SyncStore::Page finish(bool more) {
        SyncStore::Page page;
        page.records = std::move(records_);
        page.entityNames = adopt(plist_new_array());
        for (auto& name : names_) plist_array_append_item(page.entityNames.get(), plist_new_string(name.c_str()));
        page.more = more;
        return page;
    }

private:
    PlistPtr records_;
    std::vector<std::string> names_;
    std::string lastEntity_;
};

std::string utcNow() {
    const time_t now = time(nullptr);
    struct tm tm {};
    gmtime_r(&now, &tm);
    char text[40];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &tm);
    return text;
}

}  // namespace

SyncStore::SyncStore(const SyncDataClass& cls, const fs::path& stateFolder, plist_t classProfile) : records_(cls) {
    if (!stateFolder.empty()) {
        recordsFile_ = stateFolder / (std::string(cls.storeName) + ".plist");
        anchorsFile_ = stateFolder / (std::string(cls.storeName) + ".anchors.plist");
    }
    load(classProfile);
}

void SyncStore::load(plist_t classProfile) {
    PlistPtr saved = recordsFile_.empty() ? nullptr : readPlistFile(recordsFile_);
    if (plist_t records = dictDict(saved.get(), "Records")) {
        putAll(records, false);
    } else {
        for (auto& [id, record] : profileRecords(dataClass(), classProfile)) records_.put(id, std::move(record), false);
    }
    const uint64_t generation = dictUInt(saved.get(), "Generation").value_or(0);
    records_.setGeneration(generation);

    PlistPtr anchors = anchorsFile_.empty() ? nullptr : readPlistFile(anchorsFile_);
    anchorsIssued_ = dictUInt(anchors.get(), "AnchorsIssued").value_or(0);
    // Which records changed after the last finished session is not kept:
    // if any did, the next session is a slow one.
    auto device = dictString(anchors.get(), "DeviceAnchor");
    if (device && dictUInt(anchors.get(), "Generation") == generation) {
        lastDeviceAnchor_ = device;
        lastComputerAnchor_ = dictString(anchors.get(), "ComputerAnchor").value_or("");
        lastGeneration_ = generation;
    }
}

PlistPtr SyncStore::recordsPlist() const {
    PlistPtr state = adopt(plist_new_dict());
    plist_dict_set_item(state.get(), "Generation", plist_new_uint(records_.generation()));
    plist_t records = plist_new_dict();
    records_.forEachAfter(std::nullopt, [records](const std::string& id, const SyncRecordSet::Record& record) {
        plist_dict_set_item(records, id.c_str(), plist_copy(record.fields.get()));
        return true;
    });
    plist_dict_set_item(state.get(), "Records", records);
    return state;
}

void SyncStore::saveRecords() {
    if (recordsFile_.empty()) return;
    writePlistFile(recordsFile_, recordsPlist().get());
}

std::string SyncStore::serialized() {
    std::lock_guard<std::mutex> lock(mutex_);
    return toXml(recordsPlist().get());
}

void SyncStore::replace(plist_t records) {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
    putAll(records, true);
    saveRecords();
}

void SyncStore::putAll(plist_t records, bool changed) {
    plist_dict_iter it = nullptr;
    plist_dict_new_iter(records, &it);
    for (;;) {
        char* id = nullptr;
        plist_t record = nullptr;
        plist_dict_next_item(records, it, &id, &record);
        if (!id) break;
        if (plist_get_node_type(record) == PLIST_DICT) records_.put(id, adopt(plist_copy(record)), changed);
        free(id);
    }
    free(it);
}

void SyncStore::saveAnchors() {
    if (anchorsFile_.empty()) return;
    PlistPtr state = adopt(plist_new_dict());
    plist_dict_set_item(state.get(), "AnchorsIssued", plist_new_uint(anchorsIssued_));
    if (lastDeviceAnchor_) {
        plist_dict_set_item(state.get(), "DeviceAnchor", plist_new_string(lastDeviceAnchor_->c_str()));
        plist_dict_set_item(state.get(), "ComputerAnchor", plist_new_string(lastComputerAnchor_.c_str()));
        plist_dict_set_item(state.get(), "Generation", plist_new_uint(lastGeneration_));
    }
    writePlistFile(anchorsFile_, state.get());
}

SyncStore::Opening SyncStore::open(const std::string& presentedDeviceAnchor) {
    std::lock_guard<std::mutex> lock(mutex_);
    Opening opening;
    opening.fast = lastDeviceAnchor_ && presentedDeviceAnchor == *lastDeviceAnchor_;
    opening.since = lastGeneration_;
    opening.computerAnchor = lastDeviceAnchor_ ? lastComputerAnchor_ : "";
    opening.deviceAnchor = utcNow() + " #" + std::to_string(++anchorsIssued_);
    return opening;
}

void SyncStore::commit(const std::string& deviceAnchor, const std::string& computerAnchor) {
    std::lock_guard<std::mutex> lock(mutex_);
    lastDeviceAnchor_ = deviceAnchor;
    lastComputerAnchor_ = computerAnchor;
    lastGeneration_ = records_.generation();
    saveAnchors();
}

SyncStore::Page SyncStore::listing(std::optional<SyncOrder>& cursor, size_t limit) {
    std::lock_guard<std::mutex> lock(mutex_);
    PageBuilder page;
    size_t taken = 0;
    bool more = false;
    records_.forEachAfter(cursor, [&](const std::string& id, const SyncRecordSet::Record& record) {
        if (taken == limit) {
            more = true;
            return false;
        }
        page.add(id, record);
        cursor = record.order;
        ++taken;
        return true;
    });
    return page.finish(more);
}

SyncStore::Page SyncStore::changes(uint64_t since, Part part) {
    std::lock_guard<std::mutex> lock(mutex_);
    PageBuilder page;
    records_.forEachChangedSince(since, [&](const std::string& id, const SyncRecordSet::Record& record) {
        const bool parent = record.order.rank == 0;
        if (part == Part::All || (part == Part::Parents) == parent) page.add(id, record);
        return true;
    });
    return page.finish(false);
}

PlistPtr SyncStore::apply(plist_t entities, SyncRemapTable& remap) {
    std::lock_guard<std::mutex> lock(mutex_);
    const uint64_t before = records_.generation();
    PlistPtr answer = applyHostChanges(records_, entities, remap);
    if (records_.generation() != before) saveRecords();
    return answer;
}

void SyncStore::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
    saveRecords();
}

SyncStore& syncStoreFor(const ServiceContext& ctx, const SyncDataClass& cls) {
    static std::mutex mutex;
    // Stores live as long as the simulator, like the device's other memory.
    static std::map<std::string, std::unique_ptr<SyncStore>> stores;
    const std::string device = ctx.stateDir.empty() ? "udid:" + ctx.udid : ctx.stateDir.string();
    std::lock_guard<std::mutex> lock(mutex);
    auto& slot = stores[device + "\n" + cls.storeName];
    if (!slot)
        slot = std::make_unique<SyncStore>(cls, ctx.stateDir.empty() ? fs::path() : ctx.stateDir / "sync",
                                           syncClassProfile(ctx.profile, cls));
    return *slot;
}

}  // namespace zsim
