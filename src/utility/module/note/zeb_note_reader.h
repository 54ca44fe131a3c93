// The reader of a note session: notes as the parent reads them, and the id
// the device gives a new one.
#pragma once

#include "zeb_plist_variant.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <vector>

struct NoteRecord {
    std::string id, guid, subject, author, content, entity;
    std::string dateCreated, dateCreatedSource, dateModified, dateModifiedSource, contentType;
};

enum NoteReplyMode : int32_t { kNoteRead = 0, kNoteAdd = 1 };

struct NoteReplyContext {
    int32_t mode = kNoteRead;
    std::string deviceId;
    std::string proposedId;
    std::string newNoteId;
    std::vector<NoteRecord> notes;
};

// SyncMessageHandler of every note session.
void NoteReplyHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result);

namespace note {
void readRecords(NoteReplyContext& reply, const PlistVariant& message);
// The notes as a JSON array, keys in the order the parent reads them.
void notesJson(const std::vector<NoteRecord>& notes, rapidjson::Document& out);
}  // namespace note
