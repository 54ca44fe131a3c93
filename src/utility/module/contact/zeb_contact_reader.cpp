#include "zeb_contact_reader.h"

#include "zeb_plist_bridge.h"
#include "zeb_sync_clock.h"
#include "zeb_sync_matchers.h"

#include <cstring>

namespace {

using Allocator = rapidjson::Document::AllocatorType;

const char kEntityKey[] = "com.apple.syncservices.RecordEntityName";
const char kContactEntity[] = "com.apple.contacts.Contact";
const char kGroupEntity[] = "com.apple.contacts.Group";

rapidjson::Value text(const std::string& value, Allocator& allocator) {
    return rapidjson::Value(value.data(), static_cast<rapidjson::SizeType>(value.size()), allocator);
}

// A field's value as the parent reads it. Strings in the device's UTC form
// come out in local time; anything that is not a string becomes the decimal
// text of its value (a collection gives its size).
std::string fieldText(const PlistVariant& value) {
    switch (value.tag()) {
        case VariantTag::String: {
            std::string local;
            return zeb::utcTextToLocal(value.text(), local) ? local : value.text();
        }
        case VariantTag::Int32: return std::to_string(value.int32());
        case VariantTag::Int64: return std::to_string(value.int64());
        case VariantTag::Bool: return std::to_string(value.booleanWord());
        case VariantTag::Double: return std::to_string(static_cast<int64_t>(value.real()));
        case VariantTag::Array: return std::to_string(value.array().size());
        case VariantTag::Dictionary: return std::to_string(value.dictionary() ? value.dictionary()->size() : 0);
        default: return "0";
    }
}

void addFields(rapidjson::Value& object, const CIOSDictionary& record, Allocator& allocator) {
    for (const auto& [name, value] : record) object.AddMember(text(name, allocator), text(fieldText(value), allocator), allocator);
}

// Adds or replaces `value` under `id` in a list object kept with its index.
void put(rapidjson::Value& list, std::unordered_map<std::string, size_t>& index, const std::string& id,
         rapidjson::Value& value, Allocator& allocator) {
    auto found = index.find(id);
    if (found != index.end()) {
        (list.MemberBegin() + found->second)->value = value;
        return;
    }
    index.emplace(id, list.MemberCount());
    list.AddMember(text(id, allocator), value, allocator);
}

void addContact(ChangeReplyContext& reply, const std::string& id, const CIOSDictionary& record) {
    Allocator& allocator = reply.document.GetAllocator();
    rapidjson::Value contact(rapidjson::kObjectType);
    addFields(contact, record, allocator);
    put(reply.contacts, reply.contactIndex, id, contact, allocator);
}

void addGroup(ChangeReplyContext& reply, const std::string& id, const CIOSDictionary& record) {
    Allocator& allocator = reply.document.GetAllocator();
    rapidjson::Value group(rapidjson::kObjectType);
    for (const auto& [name, value] : record) {
        if (value.tag() == VariantTag::String) {
            group.AddMember(text(name, allocator), text(value.text(), allocator), allocator);
            continue;
        }
        // Whatever the field is called, its strings are the members.
        rapidjson::Value members(rapidjson::kArrayType);
        if (value.tag() == VariantTag::Array)
            for (const PlistVariant& member : value.array())
                if (member.tag() == VariantTag::String) members.PushBack(text(member.text(), allocator), allocator);
        auto existing = group.FindMember("members");
        if (existing != group.MemberEnd())
            existing->value = members;
        else
            group.AddMember("members", members, allocator);
    }
    put(reply.groups, reply.groupIndex, id, group, allocator);
}

// A child goes under each contact it names, in an array named after its
// entity. Owners not read yet are passed over.
void addChild(ChangeReplyContext& reply, const std::string& id, const std::string& entity,
              const CIOSDictionary& record) {
    const PlistVariant* owners = record.Find("contact");
    if (!owners || owners->tag() != VariantTag::Array) return;
    Allocator& allocator = reply.document.GetAllocator();
    rapidjson::Value child(rapidjson::kObjectType);
    bool built = false;
    for (const PlistVariant& owner : owners->array()) {
        if (owner.tag() != VariantTag::String) continue;
        auto found = reply.contactIndex.find(owner.text());
        if (found == reply.contactIndex.end()) continue;
        if (!built) {
            child.AddMember("id", text(id, allocator), allocator);
            addFields(child, record, allocator);
            built = true;
        }
        rapidjson::Value& contact = (reply.contacts.MemberBegin() + found->second)->value;
        auto list = contact.FindMember(entity.c_str());
        if (list == contact.MemberEnd() || !list->value.IsArray()) {
            contact.AddMember(text(entity, allocator), rapidjson::Value(rapidjson::kArrayType), allocator);
            list = contact.MemberEnd() - 1;
        }
        list->value.PushBack(rapidjson::Value(child, allocator), allocator);
    }
}

void readGroupId(ChangeReplyContext& reply, const PlistVariant& message) {
    if (message.tag() != VariantTag::Array) return;
    for (const PlistVariant& element : message.array()) {
        if (element.tag() != VariantTag::Dictionary || !element.dictionary()) continue;
        const PlistVariant* id = element.dictionary()->Find(reply.groupKey);
        if (id && id->tag() == VariantTag::String) reply.newGroupId = id->text();
    }
}

}  // namespace

namespace contact {

void readRecords(ChangeReplyContext& reply, const PlistVariant& message) {
    if (message.tag() != VariantTag::Array) return;
    // A batch comes sorted by record id, which can put a child ("12/5/0")
    // ahead of its contact ("5"): contacts and groups are taken first, then
    // the children of the batch. A child whose contact came in no batch so
    // far is still passed over.
    for (int pass = 0; pass < 2; ++pass) {
        for (const PlistVariant& element : message.array()) {
            if (element.tag() != VariantTag::Dictionary || !element.dictionary()) continue;
            for (const auto& [id, record] : *element.dictionary()) {
                if (record.tag() != VariantTag::Dictionary || !record.dictionary()) continue;
                const PlistVariant* entity = record.dictionary()->Find(kEntityKey);
                if (!entity || entity->tag() != VariantTag::String) continue;
                const bool isContact = entity->text() == kContactEntity;
                const bool isGroup = entity->text() == kGroupEntity;
                if ((pass == 0) != (isContact || isGroup)) continue;
                if (isContact)
                    addContact(reply, id, *record.dictionary());
                else if (isGroup)
                    addGroup(reply, id, *record.dictionary());
                else
                    addChild(reply, id, entity->text(), *record.dictionary());
            }
        }
    }
}

}  // namespace contact

void ContactReplyHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    auto& reply = *static_cast<ChangeReplyContext*>(context);
    *keepWaiting = false;  // every answer is one frame
    PlistVariant frame;
    if (!DecodeFrame(bytes, length, frame)) return;
    const PlistVariant* message = zeb::syncMessageOf(frame);
    if (!message) return;
    switch (reply.mode) {
        case kContactFirstBatch: contact::readRecords(reply, *message); break;
        case kContactFurtherBatch:
            contact::readRecords(reply, *message);
            *result = zeb::messageHolds(*message, "SDMessageProcessChanges", false);
            break;
        case kContactRemoval: break;
        case kContactGroupChange: readGroupId(reply, *message); break;
        default:
            if (reply.mode >= kContactEntityIds && reply.mode < kContactEntityIds + int32_t{kContactEntityCount})
                zeb::collectIdMap(*message, reply.idMaps[reply.mode - kContactEntityIds]);
    }
}
