// The reader of a calendar session: the device's four entities read into
// typed records and linked as they arrive, and the ids the device gives
// back after a change.
#pragma once

#include "zeb_sync_changes.h"

#include <rapidjson/document.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

inline constexpr const char* kCalendarEntities[] = {
    "com.apple.calendars.Calendar", "com.apple.calendars.Event", "com.apple.calendars.DisplayAlarm",
    "com.apple.calendars.Recurrence"};

enum CalendarReplyMode : int32_t {
    kCalendarFirstBatch = 0,
    kCalendarFurtherBatch = 1,
    kCalendarEntityIds = 2,  // 2..5: the ids of one entity's change, in kCalendarEntities order
    kCalendarRemoval = 6,
};

struct CalendarRecord {
    std::string title, entity;
    int32_t readOnly = 0;
    std::array<int64_t, 4> color{};
    std::vector<std::string> events;  // linked when each event was read
};

struct EventRecord {
    std::string startDate, endDate, url, timezone, entity, summary, description, location;
    int64_t allDay = 0;
    std::string recurrence;           // the last recurrence that named it
    std::vector<std::string> alarms;  // alarms that named it, in their order
};

struct RecurrenceRecord {
    std::string frequency, until, entity;
    int64_t interval = 0;
};

struct AlarmRecord {
    std::string description, entity;
    int64_t triggerDuration = 0;
};

struct CalendarReplyContext {
    int32_t mode = kCalendarFirstBatch;
    std::string deviceId;
    std::map<std::string, CalendarRecord> calendars;
    std::map<std::string, EventRecord> events;
    std::map<std::string, RecurrenceRecord> recurrences;
    std::map<std::string, AlarmRecord> alarms;
    zeb::SyncIdMap idMaps[4];  // Calendar, Event, DisplayAlarm, Recurrence
};

// SyncMessageHandler of every calendar session.
void CalendarReplyHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result);

namespace calendar {
// The records of one decoded message (modes 0 and 1).
void readRecords(CalendarReplyContext& reply, const PlistVariant& message);
// Every calendar, in id order, each with its events nested.
void buildCalendars(const CalendarReplyContext& reply, rapidjson::Document& out);
}  // namespace calendar
