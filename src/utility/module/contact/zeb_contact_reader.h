// The one handler that reads every answer of a contact session, steered by
// the step it is in: record batches into JSON, and the ids the device gives
// back after a change.
#pragma once

#include "zeb_sync_changes.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>

class ZEBModuleContact;

// The entities of a contact, in the order a new contact's texts go out.
inline constexpr const char* kContactEntities[] = {
    "com.apple.contacts.Contact",      "com.apple.contacts.Phone Number", "com.apple.contacts.Email Address",
    "com.apple.contacts.Street Address", "com.apple.contacts.URL",        "com.apple.contacts.Related Name",
    "com.apple.contacts.IM",           "com.apple.contacts.Date",
};
inline constexpr size_t kContactEntityCount = sizeof kContactEntities / sizeof kContactEntities[0];

enum ContactReplyMode : int32_t {
    kContactFirstBatch = 0,    // the answer to "get all records"
    kContactFurtherBatch = 1,  // the answer to an acknowledge during a read
    kContactEntityIds = 2,     // 2..9: the ids of one entity's change, in kContactEntities order
    kContactRemoval = 10,
    kContactGroupChange = 11,
};

struct ChangeReplyContext {
    int32_t mode = kContactFirstBatch;
    std::string deviceId;
    ZEBModuleContact* module = nullptr;
    rapidjson::Document document;  // owns every JSON value below
    rapidjson::Value contacts{rapidjson::kObjectType};
    rapidjson::Value groups{rapidjson::kObjectType};
    zeb::SyncIdMap idMaps[kContactEntityCount];
    std::string groupKey;
    std::string newGroupId;

    // Record id -> member position, so that children find their contact
    // without a walk through every contact.
    std::unordered_map<std::string, size_t> contactIndex, groupIndex;
    // Field and entity names, each kept once for the whole reply.
    std::unordered_set<std::string> names;
    // Where one record is put together before it is copied into the
    // document at its exact size; emptied after each record.
    alignas(8) char scratchSpace[16 * 1024];
    rapidjson::MemoryPoolAllocator<> scratch{scratchSpace, sizeof scratchSpace};

    ChangeReplyContext() { document.SetObject(); }
};

// SyncMessageHandler of every contact session.
void ContactReplyHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result);

namespace contact {
// The record reader on one decoded message (modes 0 and 1).
void readRecords(ChangeReplyContext& reply, const PlistVariant& message);
}  // namespace contact
