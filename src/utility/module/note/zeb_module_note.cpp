#include "zeb_module_note.h"

#include "zeb_format.h"
#include "zeb_note_reader.h"
#include "zeb_note_texts.h"
#include "zeb_paged_reply.h"
#include "zeb_sync_changes.h"
#include "zeb_sync_service.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <ctime>

namespace {

constexpr size_t kNotesPerChunk = 20;

// The present moment as the device writes dates.
std::string utcNow() {
    time_t now = time(nullptr);
    tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02uZ", static_cast<unsigned>(utc.tm_year + 1900),
             static_cast<unsigned>(utc.tm_mon + 1), static_cast<unsigned>(utc.tm_mday),
             static_cast<unsigned>(utc.tm_hour), static_cast<unsigned>(utc.tm_min), static_cast<unsigned>(utc.tm_sec));
    return text;
}

std::string member(const rapidjson::Document& request, const char* key) {
    auto found = request.FindMember(key);
    return found != request.MemberEnd() && found->value.IsString() ? found->value.GetString() : std::string();
}

}  // namespace

int ZEBModuleNote::execute(IPCPacket1* packet) {
    DispatchRules rules;
    rules.anyVersion = packet->commandType == 1200;
    rules.releaseMemoryAfter = packet->commandType == 1200;
    dispatch(packet, rules, [this](CommandContext& context) -> int64_t {
        if (context.packet->commandType == 1200) return query(context);
        if (context.version != 1) return kCodeSuccess;
        rapidjson::Document request;
        if (!context.readTail(request)) return kCodeBadTail;
        if (!request.IsObject()) return kCodeBadJson;
        return addNote(context, request);
    });
    return 0;
}

int64_t ZEBModuleNote::query(CommandContext& context) {
    NoteReplyContext reply;
    reply.deviceId = context.device->udid;
    // One batch is read; the rest are not asked for.
    const SyncRecordReader reader(NoteReplyHandler, &reply, &reply.mode, kNoteRead, kNoteRead, false);
    const int64_t read = zeb::ReadAllSyncRecords(context, "Note", note::kTexts, reader);
    if (read == kCodeSyncServiceFailed) return read;

    rapidjson::Document notes;
    note::notesJson(reply.notes, notes);
    const int64_t count = zeb::syncListCount(*context.device, "Notes", notes.Size());
    zeb::sendPagedArray(zeb::PagedReply{context.packet, 1200, context.device->udid}, count, notes, kNotesPerChunk);
    return read;  // a list the device cut off went out as far as it came
}

int64_t ZEBModuleNote::addNote(CommandContext& context, const rapidjson::Document& request) {
    NoteReplyContext reply;
    reply.deviceId = context.device->udid;
    reply.proposedId = member(request, "id");
    const std::string now = utcNow();

    std::string text = zeb::fillTemplate(note::kNoteTemplate, reply.proposedId);
    for (int slot = 0; slot < 2; ++slot) text.replace(text.find("%s"), 2, now);
    zeb::SyncRecordEdit edit(text);
    if (request.HasMember("title")) edit.addString("subject", member(request, "title"));
    if (request.HasMember("content")) edit.addString("content", member(request, "content"));

    SyncSession session(nullptr);
    if (!zeb::BeginSyncChange(context, note::kAddTexts, note::kAddWaits, session)) return kCodeSyncServiceFailed;
    reply.mode = kNoteAdd;
    session.sendChanges(edit.print(), NoteReplyHandler, &reply);
    session.finish(note::kAddTexts);
    if (reply.newNoteId.empty()) return kCodeNoNoteId;

    NoteRecord added;
    added.id = reply.newNoteId;
    added.guid = reply.proposedId;
    added.subject = member(request, "title");
    added.content = member(request, "content");
    added.contentType = "text/plain";
    added.entity = "com.apple.notes.Note";
    added.dateCreatedSource = added.dateModifiedSource = now;
    added.dateCreated = added.dateModified = zeb::utcTextToLocal(now.c_str());
    rapidjson::Document notes;
    note::notesJson({added}, notes);
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    notes.Accept(writer);
    const std::string tail(buffer.GetString(), buffer.GetSize());
    zeb::sendReplyEvent(zeb::PagedReply{context.packet, context.packet->commandType, context.device->udid}, 0,
                        nullptr, &tail);
    return kCodeSuccess;
}
