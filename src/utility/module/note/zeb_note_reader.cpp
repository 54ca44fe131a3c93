#include "zeb_note_reader.h"

#include "zeb_format.h"
#include "zeb_plist_bridge.h"
#include "zeb_sync_matchers.h"

namespace {

using Allocator = rapidjson::Document::AllocatorType;

const char kEntityKey[] = "com.apple.syncservices.RecordEntityName";

void take(const CIOSDictionary& record, const char* key, std::string& out) {
    const PlistVariant* value = record.Find(key);
    if (value && value->tag() == VariantTag::String) out = value->text();
}

rapidjson::Value str(const std::string& value, Allocator& allocator) {
    return rapidjson::Value(value.data(), static_cast<rapidjson::SizeType>(value.size()), allocator);
}

const CIOSDictionary* firstDictionary(const PlistVariant& message) {
    if (message.tag() != VariantTag::Array) return nullptr;
    for (const PlistVariant& element : message.array())
        if (element.tag() == VariantTag::Dictionary && element.dictionary()) return element.dictionary().get();
    return nullptr;
}

}  // namespace

namespace note {

void readRecords(NoteReplyContext& reply, const PlistVariant& message) {
    // Only the first dictionary of the message holds records.
    const CIOSDictionary* records = firstDictionary(message);
    if (!records) return;
    for (const auto& [id, value] : *records) {
        if (value.tag() != VariantTag::Dictionary || !value.dictionary() || !value.dictionary()->Find(kEntityKey))
            continue;
        const CIOSDictionary& record = *value.dictionary();
        NoteRecord note;
        note.id = id;
        take(record, "subject", note.subject);
        take(record, "author", note.author);
        take(record, "content", note.content);
        take(record, kEntityKey, note.entity);
        take(record, "dateCreated", note.dateCreatedSource);
        take(record, "dateModified", note.dateModifiedSource);
        take(record, "contentType", note.contentType);
        note.dateCreated = zeb::utcTextToLocal(note.dateCreatedSource.c_str());
        note.dateModified = zeb::utcTextToLocal(note.dateModifiedSource.c_str());
        reply.notes.push_back(std::move(note));
    }
}

void notesJson(const std::vector<NoteRecord>& notes, rapidjson::Document& out) {
    out.SetArray();
    Allocator& allocator = out.GetAllocator();
    for (const NoteRecord& note : notes) {
        rapidjson::Value object(rapidjson::kObjectType);
        object.AddMember("id", str(note.id, allocator), allocator);
        object.AddMember("guid", str(note.guid, allocator), allocator);
        object.AddMember("subject", str(note.subject, allocator), allocator);
        object.AddMember("author", str(note.author, allocator), allocator);
        object.AddMember("content", str(note.content, allocator), allocator);
        object.AddMember("dateCreated", str(note.dateCreated, allocator), allocator);
        object.AddMember("dateCreatedSource", str(note.dateCreatedSource, allocator), allocator);
        object.AddMember("dateModified", str(note.dateModified, allocator), allocator);
        object.AddMember("dateModifiedSource", str(note.dateModifiedSource, allocator), allocator);
        object.AddMember("contentType", str(note.contentType, allocator), allocator);
        object.AddMember("com_apple_syncservices_RecordEntityName", str(note.entity, allocator), allocator);
        out.PushBack(object, allocator);
    }
}

}  // namespace note

void NoteReplyHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    auto& reply = *static_cast<NoteReplyContext*>(context);
    *keepWaiting = false;
    PlistVariant frame;
    if (!DecodeFrame(bytes, length, frame)) return;
    const PlistVariant* message = zeb::syncMessageOf(frame);
    if (!message) return;
    if (reply.mode == kNoteRead) {
        note::readRecords(reply, *message);
        return;
    }
    if (message->tag() != VariantTag::Array) return;
    for (const PlistVariant& element : message->array()) {
        if (element.tag() != VariantTag::Dictionary || !element.dictionary()) continue;
        const PlistVariant* id = element.dictionary()->Find(reply.proposedId);
        if (id && id->tag() == VariantTag::String) reply.newNoteId = id->text();
    }
}
