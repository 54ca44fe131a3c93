// One com.apple.mobilesync conversation after the version exchange: the
// sync sessions a host runs on it, one data class after another. Hosts do
// not all follow the textbook order (some send their records before they
// acknowledged the device's last page, some close without reading the
// answer to Finish), so every message is taken in any state that makes
// sense of it.
#pragma once

#include "core/sync_profile.h"
#include "core/sync_store.h"
#include "service.h"

#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace zsim {

class SyncSession {
public:
    explicit SyncSession(const ServiceContext& ctx);

    struct Step {
        std::vector<std::string> frames;  // to send, in order
        bool close = false;               // then end the connection
    };
    Step handle(plist_t message);

private:
    Step start(plist_t message);
    Step getAll();
    Step getChanges();
    Step acknowledged();
    Step hostChanges(plist_t message);
    Step clearAll();
    Step finish(plist_t message);
    void forget();

    Step sendPage(SyncStore::Page page);
    Step noSession(const std::string& dataClass) const;

    const ServiceContext& ctx_;
    const SyncSettings settings_;
    bool hostChangesSeen_ = false;

    // The session in progress (none without a class).
    const SyncDataClass* class_ = nullptr;
    SyncStore* store_ = nullptr;
    SyncStore::Opening opening_;
    std::string computerAnchor_;
    SyncRemapTable remap_;

    // The device's pages: the full listing goes on from the cursor,
    // changes are made at once and queued.
    enum class Reading { None, All, Changes };
    Reading reading_ = Reading::None;
    std::optional<SyncOrder> cursor_;
    std::deque<SyncStore::Page> queued_;
    bool lastPageSent_ = false;
    uint64_t pagesSent_ = 0;
};

}  // namespace zsim
