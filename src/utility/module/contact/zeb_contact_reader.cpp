#include "zeb_contact_reader.h"

#include "zeb_plist_bridge.h"
#include "zeb_sync_clock.h"
#include "zeb_sync_matchers.h"

#include <cstring>
#include <vector>

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
            return zeb::deviceDateToLocal(value.text(), local) ? local : value.text();
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

// Field names repeat in every record: each is kept once, and the JSON
// refers to it.
rapidjson::Value nameOf(ChangeReplyContext& reply, const std::string& name) {
    const std::string& kept = *reply.names.insert(name).first;
    return rapidjson::Value(rapidjson::StringRef(kept.data(), static_cast<rapidjson::SizeType>(kept.size())));
}

// An object is built in the scratch pool and copied into the reply's
// document at its exact size: a growing object would hold room for sixteen
// members, several times what a record has, for the life of the reply.
rapidjson::Value keep(ChangeReplyContext& reply, const rapidjson::Value& built) {
    rapidjson::Value kept(built, reply.document.GetAllocator());
    reply.scratch.Clear();
    return kept;
}

void addFields(ChangeReplyContext& reply, rapidjson::Value& object, const CIOSDictionary& record) {
    for (const auto& [name, value] : record)
        object.AddMember(nameOf(reply, name), text(fieldText(value), reply.scratch), reply.scratch);
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
    rapidjson::Value built(rapidjson::kObjectType);
    addFields(reply, built, record);
    rapidjson::Value contact = keep(reply, built);
    put(reply.contacts, reply.contactIndex, id, contact, reply.document.GetAllocator());
}

void addGroup(ChangeReplyContext& reply, const std::string& id, const CIOSDictionary& record) {
    rapidjson::Value built(rapidjson::kObjectType);
    for (const auto& [name, value] : record) {
        if (value.tag() == VariantTag::String) {
            built.AddMember(nameOf(reply, name), text(value.text(), reply.scratch), reply.scratch);
            continue;
        }
        // Whatever the field is called, its strings are the members.
        rapidjson::Value members(rapidjson::kArrayType);
        if (value.tag() == VariantTag::Array)
            for (const PlistVariant& member : value.array())
                if (member.tag() == VariantTag::String) members.PushBack(text(member.text(), reply.scratch), reply.scratch);
        if (built.HasMember("members"))
            built["members"] = members;
        else
            built.AddMember("members", members, reply.scratch);
    }
    rapidjson::Value group = keep(reply, built);
    put(reply.groups, reply.groupIndex, id, group, reply.document.GetAllocator());
}

// A child goes under each contact it names, in an array named after its
// entity. Owners not read yet are passed over.
void addChild(ChangeReplyContext& reply, const std::string& id, const std::string& entity,
              const CIOSDictionary& record) {
    const PlistVariant* owners = record.Find("contact");
    if (!owners || owners->tag() != VariantTag::Array) return;
    std::vector<size_t> found;
    for (const PlistVariant& owner : owners->array()) {
        if (owner.tag() != VariantTag::String) continue;
        auto contact = reply.contactIndex.find(owner.text());
        if (contact != reply.contactIndex.end()) found.push_back(contact->second);
    }
    if (found.empty()) return;
    Allocator& allocator = reply.document.GetAllocator();
    rapidjson::Value built(rapidjson::kObjectType);
    built.AddMember("id", text(id, reply.scratch), reply.scratch);
    addFields(reply, built, record);
    rapidjson::Value child = keep(reply, built);
    for (size_t n = 0; n < found.size(); ++n) {
        rapidjson::Value& contact = (reply.contacts.MemberBegin() + found[n])->value;
        if (!contact.HasMember(entity.c_str())) {
            rapidjson::Value list(rapidjson::kArrayType);
            list.Reserve(2, allocator);  // most contacts have one or two of a kind
            contact.AddMember(nameOf(reply, entity), list, allocator);
        }
        rapidjson::Value& list = contact[entity.c_str()];
        if (!list.IsArray()) list.SetArray();  // a field of that name gives way to the children
        // The allocator never gives memory back: only extra owners get copies.
        if (n + 1 < found.size())
            list.PushBack(rapidjson::Value(child, allocator), allocator);
        else
            list.PushBack(child, allocator);
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
