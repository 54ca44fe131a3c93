// One data class's records on one device, shared by every connection to
// it, with the anchors of the last finished sync session. Until the first
// change it holds the profile's records; from then on they live in the
// state folder (sync/<Class>.plist) and are read back from there. The
// anchors have a small file of their own (sync/<Class>.anchors.plist), so
// that finishing a session does not rewrite a large store.
#pragma once

#include "core/plist_util.h"
#include "core/sync_host_changes.h"
#include "core/sync_record_set.h"
#include "service.h"

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

namespace zsim {

class SyncStore {
public:
    // `stateFolder` empty: nothing is persisted.
    SyncStore(const SyncDataClass& cls, const std::filesystem::path& stateFolder, plist_t classProfile);

    const SyncDataClass& dataClass() const { return records_.dataClass(); }

    struct Opening {
        bool fast = false;       // the host presented the anchor of the last finished session
        uint64_t since = 0;      // generation at that session's end
        std::string deviceAnchor;    // fresh, for the host to present next time
        std::string computerAnchor;  // the host's anchor from that session, or empty
    };
    Opening open(const std::string& presentedDeviceAnchor);
    // The session that opened with `deviceAnchor` finished.
    void commit(const std::string& deviceAnchor, const std::string& computerAnchor);

    struct Page {
        PlistPtr records;      // {id: record}
        PlistPtr entityNames;  // the entity names in `records`, each once
        bool more = false;
    };
    // Up to `limit` records after `cursor` in listing order; moves the cursor.
    Page listing(std::optional<SyncOrder>& cursor, size_t limit);
    enum class Part { All, Parents, Children };
    // The records of `part` changed after generation `since`.
    Page changes(uint64_t since, Part part);

    PlistPtr apply(plist_t entities, SyncRemapTable& remap);
    void clear();

    // The store as it persists ({Generation, Records}, XML), for a backup.
    std::string serialized();
    // Every record replaced by `records` ({id: record}), as a restore does;
    // they all count as changed.
    void replace(plist_t records);

private:
    void load(plist_t classProfile);
    // Every dictionary of `records` by its id; `changed` as put() takes it.
    void putAll(plist_t records, bool changed);
    // The caller holds mutex_.
    PlistPtr recordsPlist() const;
    void saveRecords();
    void saveAnchors();

    std::mutex mutex_;
    SyncRecordSet records_;
    std::filesystem::path recordsFile_;
    std::filesystem::path anchorsFile_;
    std::optional<std::string> lastDeviceAnchor_;
    std::string lastComputerAnchor_;
    uint64_t lastGeneration_ = 0;
    uint64_t anchorsIssued_ = 0;
};

// The store of that class on the device a service runs on, made on first use.
SyncStore& syncStoreFor(const ServiceContext& ctx, const SyncDataClass& cls);

}  // namespace zsim
