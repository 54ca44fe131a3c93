#include "zeb_module_calendar.h"

#include "zeb_calendar_reader.h"
#include "zeb_calendar_texts.h"
#include "zeb_paged_reply.h"
#include "zeb_sync_service.h"

namespace {

constexpr size_t kCalendarsPerChunk = 20;

std::string memberText(const rapidjson::Document& request, const char* key) {
    auto found = request.FindMember(key);
    if (found == request.MemberEnd() || !found->value.IsString()) return {};
    return std::string(found->value.GetString(), found->value.GetStringLength());
}

}  // namespace

int ZEBModuleCalendar::execute(IPCPacket1* packet) {
    DispatchRules rules;
    rules.anyVersion = packet->commandType == 1500;
    rules.releaseMemoryAfter = packet->commandType == 1500;
    dispatch(packet, rules, [this](CommandContext& context) -> int64_t {
        const uint32_t command = context.packet->commandType;
        if (command == 1500) return query(context);
        if (context.version != 1) return kCodeSuccess;
        rapidjson::Document request;
        if (!context.readTail(request)) return kCodeBadTail;
        if (!request.IsObject()) return kCodeBadJson;
        return command == 1501 ? addCalendar(context, request) : removeRecord(context, request);
    });
    return 0;
}

int64_t ZEBModuleCalendar::query(CommandContext& context) {
    CalendarReplyContext reply;
    reply.deviceId = context.device->udid;
    const SyncRecordReader reader(CalendarReplyHandler, &reply, &reply.mode, kCalendarFirstBatch,
                                  kCalendarFurtherBatch, true);
    const int64_t read = zeb::ReadAllSyncRecords(context, "Calendar", calendar::kTexts, reader);
    if (read == kCodeSyncServiceFailed) return read;

    rapidjson::Document calendars;
    calendar::buildCalendars(reply, calendars);
    const int64_t count = zeb::syncListCount(*context.device, "Calendars", calendars.Size());
    zeb::sendPagedArray(zeb::PagedReply{context.packet, 1500, context.device->udid}, count, calendars,
                        kCalendarsPerChunk);
    return read;  // a list the device cut off went out as far as it came
}

int64_t ZEBModuleCalendar::addCalendar(CommandContext& context, const rapidjson::Document& request) {
    CalendarReplyContext reply;
    reply.deviceId = context.device->udid;
    SyncSession session(nullptr);
    if (!zeb::BeginSyncChange(context, calendar::kTexts, calendar::kChangeWaits, session))
        return kCodeSyncServiceFailed;

    reply.mode = kCalendarEntityIds;
    session.sendChanges(memberText(request, kCalendarEntities[0]), CalendarReplyHandler, &reply);
    if (reply.idMaps[0].empty()) return kCodeNoCalendarId;
    const auto& [proposedCalendar, deviceCalendar] = *reply.idMaps[0].begin();
    if (request.HasMember(kCalendarEntities[1])) {
        reply.mode = kCalendarEntityIds + 1;
        session.sendChanges(
            zeb::replaceProposedId(memberText(request, kCalendarEntities[1]), proposedCalendar, deviceCalendar),
            CalendarReplyHandler, &reply);
    }
    // Alarms and recurrences name their events: every event's id is patched.
    for (int entity = 2; entity < 4; ++entity) {
        if (!request.HasMember(kCalendarEntities[entity])) continue;
        std::string text = memberText(request, kCalendarEntities[entity]);
        for (const auto& [proposed, given] : reply.idMaps[1]) text = zeb::replaceProposedId(text, proposed, given);
        reply.mode = kCalendarEntityIds + entity;
        session.sendChanges(text, CalendarReplyHandler, &reply);
    }
    session.finish(calendar::kTexts);

    std::vector<std::pair<const char*, const zeb::SyncIdMap*>> entities;
    // The reply names Event, then DisplayAlarm, then Recurrence.
    for (int entity : {0, 1, 2, 3}) entities.emplace_back(kCalendarEntities[entity], &reply.idMaps[entity]);
    const std::string tail = zeb::idMapReplyText(entities);
    zeb::sendReplyEvent(zeb::PagedReply{context.packet, context.packet->commandType, context.device->udid}, 0,
                        nullptr, &tail);
    return kCodeSuccess;
}

int64_t ZEBModuleCalendar::removeRecord(CommandContext& context, const rapidjson::Document& request) {
    auto id = request.FindMember("id");
    if (id == request.MemberEnd() || !id->value.IsString()) return kCodeBadJson;
    CalendarReplyContext reply;
    SyncSession session(nullptr);
    if (!zeb::BeginSyncChange(context, calendar::kTexts, calendar::kChangeWaits, session))
        return kCodeSyncServiceFailed;
    reply.mode = kCalendarRemoval;
    session.sendChanges(zeb::fillTemplate(calendar::kRemoveTemplate, id->value.GetString()), CalendarReplyHandler,
                        &reply);
    session.finish(calendar::kTexts);
    return kCodeSuccess;
}
