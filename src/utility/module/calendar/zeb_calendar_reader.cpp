#include "zeb_calendar_reader.h"

#include "zeb_format.h"
#include "zeb_plist_bridge.h"
#include "zeb_sync_matchers.h"

namespace {

using Allocator = rapidjson::Document::AllocatorType;

const char kEntityKey[] = "com.apple.syncservices.RecordEntityName";

const std::string* text(const CIOSDictionary& record, const char* key) {
    const PlistVariant* value = record.Find(key);
    return value && value->tag() == VariantTag::String ? &value->text() : nullptr;
}

void take(const CIOSDictionary& record, const char* key, std::string& out) {
    if (const std::string* value = text(record, key)) out = *value;
}

void take(const CIOSDictionary& record, const char* key, int64_t& out) {
    const PlistVariant* value = record.Find(key);
    if (value && value->tag() == VariantTag::Int64) out = value->int64();
}

// The strings of an array field: the ids a record links to.
std::vector<std::string> links(const CIOSDictionary& record, const char* key) {
    std::vector<std::string> ids;
    const PlistVariant* value = record.Find(key);
    if (!value || value->tag() != VariantTag::Array) return ids;
    for (const PlistVariant& id : value->array())
        if (id.tag() == VariantTag::String) ids.push_back(id.text());
    return ids;
}

void readCalendar(CalendarReplyContext& reply, const std::string& id, const CIOSDictionary& record) {
    CalendarRecord& calendar = reply.calendars[id];
    take(record, "title", calendar.title);
    take(record, kEntityKey, calendar.entity);
    int64_t readOnly = calendar.readOnly;
    take(record, "read only", readOnly);
    calendar.readOnly = static_cast<int32_t>(readOnly);
    const PlistVariant* color = record.Find("colorComponents");
    if (color && color->tag() == VariantTag::Array)
        for (size_t i = 0; i < color->array().size() && i < calendar.color.size(); ++i)
            color->array()[i].ToInteger(calendar.color[i]);
}

void readEvent(CalendarReplyContext& reply, const std::string& id, const CIOSDictionary& record) {
    EventRecord& event = reply.events[id];
    take(record, "start date", event.startDate);
    take(record, "end date", event.endDate);
    take(record, "url", event.url);
    take(record, "all day", event.allDay);
    take(record, "start date.timezone", event.timezone);
    take(record, kEntityKey, event.entity);
    take(record, "summary", event.summary);
    take(record, "description", event.description);
    take(record, "location", event.location);
    // Calendars not read yet never get this event.
    for (const std::string& calendar : links(record, "calendar")) {
        auto owner = reply.calendars.find(calendar);
        if (owner != reply.calendars.end()) owner->second.events.push_back(id);
    }
}

void readRecurrence(CalendarReplyContext& reply, const std::string& id, const CIOSDictionary& record) {
    RecurrenceRecord& recurrence = reply.recurrences[id];
    take(record, "frequency", recurrence.frequency);
    take(record, "until", recurrence.until);
    take(record, "interval", recurrence.interval);
    take(record, kEntityKey, recurrence.entity);
    for (const std::string& owner : links(record, "owner")) {
        auto event = reply.events.find(owner);
        if (event != reply.events.end()) event->second.recurrence = id;  // the last one wins
    }
}

void readAlarm(CalendarReplyContext& reply, const std::string& id, const CIOSDictionary& record) {
    AlarmRecord& alarm = reply.alarms[id];
    take(record, "description", alarm.description);
    take(record, "triggerduration", alarm.triggerDuration);
    take(record, kEntityKey, alarm.entity);
    for (const std::string& owner : links(record, "owner")) {
        auto event = reply.events.find(owner);
        if (event != reply.events.end()) event->second.alarms.push_back(id);
    }
}

rapidjson::Value str(const std::string& value, Allocator& allocator) {
    return rapidjson::Value(value.data(), static_cast<rapidjson::SizeType>(value.size()), allocator);
}

// A device date as it stands and in local time; too short a text has no local form.
void addDate(rapidjson::Value& object, const char* local, const char* source, const std::string& value,
             Allocator& allocator) {
    object.AddMember(rapidjson::StringRef(local), str(zeb::utcTextToLocal(value.c_str()), allocator), allocator);
    object.AddMember(rapidjson::StringRef(source), str(value, allocator), allocator);
}

rapidjson::Value eventJson(const CalendarReplyContext& reply, const std::string& id, const EventRecord& event,
                           Allocator& allocator) {
    rapidjson::Value object(rapidjson::kObjectType);
    object.AddMember("id", str(id, allocator), allocator);
    addDate(object, "start_date", "start_date_source", event.startDate, allocator);
    addDate(object, "end_date", "end_date_source", event.endDate, allocator);
    object.AddMember("url", str(event.url, allocator), allocator);
    object.AddMember("all_day", event.allDay, allocator);
    object.AddMember("start_date_timezone", str(event.timezone, allocator), allocator);
    object.AddMember("com_apple_syncservices_RecordEntityName", str(event.entity, allocator), allocator);
    object.AddMember("summary", str(event.summary, allocator), allocator);
    object.AddMember("description", str(event.description, allocator), allocator);
    object.AddMember("location", str(event.location, allocator), allocator);
    auto recurrence = reply.recurrences.find(event.recurrence);
    if (!event.recurrence.empty() && recurrence != reply.recurrences.end()) {
        const RecurrenceRecord& r = recurrence->second;
        rapidjson::Value value(rapidjson::kObjectType);
        value.AddMember("id", str(event.recurrence, allocator), allocator);
        value.AddMember("frequency", str(r.frequency, allocator), allocator);
        addDate(value, "until", "until_source", r.until, allocator);
        value.AddMember("interval", r.interval, allocator);
        value.AddMember("com_apple_syncservices_RecordEntityName", str(r.entity, allocator), allocator);
        object.AddMember("recurrence", value, allocator);
    }
    if (!event.alarms.empty()) {
        rapidjson::Value list(rapidjson::kArrayType);
        for (const std::string& alarmId : event.alarms) {
            const AlarmRecord& a = reply.alarms.at(alarmId);
            rapidjson::Value value(rapidjson::kObjectType);
            value.AddMember("id", str(alarmId, allocator), allocator);
            value.AddMember("description", str(a.description, allocator), allocator);
            value.AddMember("triggerduration", a.triggerDuration, allocator);
            value.AddMember("com_apple_syncservices_RecordEntityName", str(a.entity, allocator), allocator);
            list.PushBack(value, allocator);
        }
        object.AddMember("display_alarms", list, allocator);
    }
    return object;
}

}  // namespace

namespace calendar {

void readRecords(CalendarReplyContext& reply, const PlistVariant& message) {
    if (message.tag() != VariantTag::Array) return;
    for (const PlistVariant& element : message.array()) {
        if (element.tag() != VariantTag::Dictionary || !element.dictionary()) continue;
        for (const auto& [id, value] : *element.dictionary()) {
            if (value.tag() != VariantTag::Dictionary || !value.dictionary()) continue;
            const std::string* entity = text(*value.dictionary(), kEntityKey);
            if (!entity) continue;
            if (*entity == kCalendarEntities[0])
                readCalendar(reply, id, *value.dictionary());
            else if (*entity == kCalendarEntities[1])
                readEvent(reply, id, *value.dictionary());
            else if (*entity == kCalendarEntities[2])
                readAlarm(reply, id, *value.dictionary());
            else if (*entity == kCalendarEntities[3])
                readRecurrence(reply, id, *value.dictionary());
        }
    }
}

void buildCalendars(const CalendarReplyContext& reply, rapidjson::Document& out) {
    out.SetArray();
    Allocator& allocator = out.GetAllocator();
    for (const auto& [id, calendar] : reply.calendars) {
        rapidjson::Value object(rapidjson::kObjectType);
        object.AddMember("id", str(id, allocator), allocator);
        object.AddMember("title", str(calendar.title, allocator), allocator);
        object.AddMember("com_apple_syncservices_RecordEntityName", str(calendar.entity, allocator), allocator);
        object.AddMember("read_only", calendar.readOnly, allocator);
        rapidjson::Value color(rapidjson::kArrayType);
        for (int64_t component : calendar.color) color.PushBack(component, allocator);
        object.AddMember("colorComponents", color, allocator);
        rapidjson::Value events(rapidjson::kArrayType);
        for (const std::string& eventId : calendar.events) {
            auto event = reply.events.find(eventId);
            if (event != reply.events.end()) events.PushBack(eventJson(reply, eventId, event->second, allocator), allocator);
        }
        object.AddMember("events", events, allocator);
        out.PushBack(object, allocator);
    }
}

}  // namespace calendar

void CalendarReplyHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    auto& reply = *static_cast<CalendarReplyContext*>(context);
    *keepWaiting = false;
    PlistVariant frame;
    if (!DecodeFrame(bytes, length, frame)) return;
    const PlistVariant* message = zeb::syncMessageOf(frame);
    if (!message) return;
    if (reply.mode == kCalendarFirstBatch || reply.mode == kCalendarFurtherBatch) {
        calendar::readRecords(reply, *message);
        if (reply.mode == kCalendarFurtherBatch)
            *result = zeb::messageHolds(*message, "SDMessageProcessChanges", false);
    } else if (reply.mode >= kCalendarEntityIds && reply.mode < kCalendarRemoval) {
        zeb::collectIdMap(*message, reply.idMaps[reply.mode - kCalendarEntityIds]);
    }
}
