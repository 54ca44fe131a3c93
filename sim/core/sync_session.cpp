#include "core/sync_session.h"

#include "core/fault_points.h"
#include "core/sync_messages.h"

namespace zsim {

namespace {

const char* const kNoDataStore = "No Data Store available for data class";
const char* const kHostTooOld = "Your computer's software is out of date. Please update and try again!";

plist_t text(const std::string& s) { return plist_new_string(s.c_str()); }

}  // namespace

SyncSession::SyncSession(const ServiceContext& ctx) : ctx_(ctx), settings_(syncSettings(ctx.profile)) {}

SyncSession::Step SyncSession::handle(plist_t message) {
    const std::string name = messageString(message, 0);
    if (name == "SDMessageSyncDataClassWithDevice") return start(message);
    const bool needsSession = name == "SDMessageGetAllRecordsFromDevice" || name == "SDMessageGetChangesFromDevice" ||
                              name == "SDMessageClearAllRecordsOnDevice";
    if (needsSession && !class_) return noSession(messageString(message, 1));
    if (name == "SDMessageGetAllRecordsFromDevice") return getAll();
    if (name == "SDMessageGetChangesFromDevice") return getChanges();
    if (name == "SDMessageAcknowledgeChangesFromDevice") return acknowledged();
    if (name == "SDMessageProcessChanges") return hostChanges(message);
    if (name == "SDMessageClearAllRecordsOnDevice") return clearAll();
    if (name == "SDMessageFinishSessionOnDevice") return finish(message);
    if (name == "SDMessageCancelSession") {
        forget();
        return {};
    }
    if (name == "DLMessageDisconnect") return {{}, true};
    // DLMessagePing and anything else: nothing to answer.
    return {};
}

SyncSession::Step SyncSession::start(plist_t message) {
    forget();
    const std::string dataClass = messageString(message, 1);
    const SyncDataClass* cls = findSyncDataClass(dataClass);
    uint64_t hostVersion = 0;
    plist_t version = messageItem(message, 4);
    if (version && plist_get_node_type(version) == PLIST_UINT) plist_get_uint_val(version, &hostVersion);
    const char* refusal = !cls ? kNoDataStore : hostVersion == 0 ? kHostTooOld : nullptr;
    if (refusal)
        return {{encodeSyncFrame(
            {text("SDMessageRefuseToSyncDataClassWithComputer"), text(dataClass), text(refusal)})}};

    class_ = cls;
    store_ = &syncStoreFor(ctx_, *cls);
    opening_ = store_->open(messageString(message, 2));
    computerAnchor_ = messageString(message, 3);
    const std::string remembered = opening_.computerAnchor.empty() ? kEmptyParameter : opening_.computerAnchor;
    return {{encodeSyncFrame({text("SDMessageSyncDataClassWithComputer"), text(cls->name), text(remembered),
                              text(opening_.deviceAnchor),
                              text(opening_.fast ? "SDSyncTypeFast" : "SDSyncTypeSlow"),
                              plist_new_uint(cls->version), text(kEmptyParameter)})}};
}

SyncSession::Step SyncSession::sendPage(SyncStore::Page page) {
    // A fault here leaves this page unsent: a break or detach closes the
    // stream it would go out on.
    passFaultPoint(ctx_.udid, "sync-page", 1);
    lastPageSent_ = !page.more;
    ++pagesSent_;
    plist_t actions = plist_new_dict();
    plist_dict_set_item(actions, "SyncDeviceLinkEntityNamesKey", page.entityNames.release());
    Step step{{encodeSyncFrame({text("SDMessageProcessChanges"), text(class_->name), page.records.release(),
                                plist_new_bool(page.more), actions})}};
    // The device unplugged in the middle of a full read.
    if (reading_ == Reading::All && settings_.dropAfterPages && pagesSent_ == settings_.dropAfterPages)
        step.close = true;
    return step;
}

SyncSession::Step SyncSession::getAll() {
    reading_ = Reading::All;
    cursor_.reset();
    queued_.clear();
    pagesSent_ = 0;
    return sendPage(store_->listing(cursor_, settings_.batchSize));
}

SyncSession::Step SyncSession::getChanges() {
    reading_ = Reading::Changes;
    queued_.clear();
    pagesSent_ = 0;
    // After a slow start the host is told of no changes: it has to read all.
    const uint64_t since = opening_.fast ? opening_.since : UINT64_MAX;
    using Part = SyncStore::Part;
    if (class_->changesInTwoPages) {
        queued_.push_back(store_->changes(since, Part::Parents));
        queued_.back().more = true;
        queued_.push_back(store_->changes(since, Part::Children));
    } else {
        queued_.push_back(store_->changes(since, Part::All));
    }
    SyncStore::Page first = std::move(queued_.front());
    queued_.pop_front();
    return sendPage(std::move(first));
}

SyncSession::Step SyncSession::acknowledged() {
    if (reading_ == Reading::None) return {};
    if (lastPageSent_) {
        reading_ = Reading::None;
        return {{encodeSyncFrame({text("SDMessageDeviceReadyToReceiveChanges"), text(class_->name)})}};
    }
    if (reading_ == Reading::All) return sendPage(store_->listing(cursor_, settings_.batchSize));
    SyncStore::Page next = std::move(queued_.front());
    queued_.pop_front();
    return sendPage(std::move(next));
}

SyncSession::Step SyncSession::hostChanges(plist_t message) {
    if (settings_.dropOnHostChanges && !hostChangesSeen_) {
        hostChangesSeen_ = true;
        return {{}, true};
    }
    hostChangesSeen_ = true;
    if (!class_) return noSession(messageString(message, 1));
    PlistPtr remapped = store_->apply(messageItem(message, 2), remap_);
    plist_t answer = plist_dict_get_size(remapped.get()) ? remapped.release() : text(kEmptyParameter);
    return {{encodeSyncFrame({text("SDMessageRemapRecordIdentifiers"), text(class_->name), answer})}};
}

SyncSession::Step SyncSession::clearAll() {
    store_->clear();
    return {{encodeSyncFrame({text("SDMessageDeviceWillClearAllRecords"), text(class_->name)})}};
}

SyncSession::Step SyncSession::finish(plist_t message) {
    // A refused host finishes too: it is answered all the same.
    const std::string dataClass = class_ ? class_->name : messageString(message, 1);
    if (class_) store_->commit(opening_.deviceAnchor, computerAnchor_);
    forget();
    return {{encodeSyncFrame({text("SDMessageDeviceFinishedSession"), text(dataClass)})}};
}

void SyncSession::forget() {
    class_ = nullptr;
    store_ = nullptr;
    opening_ = {};
    computerAnchor_.clear();
    remap_.clear();
    reading_ = Reading::None;
    cursor_.reset();
    queued_.clear();
    lastPageSent_ = false;
    pagesSent_ = 0;
}

SyncSession::Step SyncSession::noSession(const std::string& dataClass) const {
    return {{encodeSyncFrame(
        {text("SDMessageCancelSession"), text(dataClass), text("No sync session in progress")})}};
}

}  // namespace zsim
