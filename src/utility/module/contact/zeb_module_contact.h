// Contacts and contact groups over the device's mobilesync service.
//
//   100  list: groups first (frames numbered 101), then contacts, each as a
//        head {"Count":n} and chunks of up to 100 records keyed by record
//        id; a contact's children sit in arrays named after their entity.
//        An empty contact list counts -1 when the device keeps contacts in
//        an account.
//   102  add one contact: tail {entity name: change message text, ...};
//        the reply maps each proposed id to the device's; 28 when the
//        device gives the contact no id.
//   103  remove a record, 105 remove a group: tail {"id":...}.
//   104  add a group: tail {"id","name"}; 106 change one: {"guid","id",
//        "name","members"}; the reply gives [device id, name]; 1 when the
//        device gives no id.
//
// 7 no device, 8 a tail that is not JSON, 13 the service would not start,
// 21 a required key missing, 2 a list the device cut off (what came was
// sent). A bad first JSON gets no report at all.
#pragma once

#include "zeb_module.h"
#include "zeb_sync_session.h"

#include <rapidjson/document.h>

struct ChangeReplyContext;

inline constexpr int64_t kCodeNoGroupId = 1;
inline constexpr int64_t kCodeNoContactId = 28;

class ZEBModuleContact : public ZEBModule {
public:
    int execute(IPCPacket1* packet) override;

private:
    int64_t query(CommandContext& context);
    int64_t addContact(CommandContext& context, const rapidjson::Document& request);
    int64_t removeRecord(CommandContext& context, const rapidjson::Document& request);
    int64_t changeGroup(CommandContext& context, const rapidjson::Document& request);

    // What every change does first: the service started and the session
    // walked up to where the device takes changes. False when the service
    // would not start.
    bool beginChange(CommandContext& context, ChangeReplyContext& reply, const SyncTexts& texts,
                     const SyncWriteWaits& waits, SyncSession& session);
};
