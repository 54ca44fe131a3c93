// Calendars with their events, recurrences and alarms over the device's
// mobilesync service.
//
//   1500  list (any payload version): a head {"Count":n} and chunks of up
//         to 20 calendars as JSON arrays, each calendar with its events
//         nested; -1 when there are none and an account keeps them.
//   1501  add a calendar and its parts: tail {entity: change text, ...}
//         for Calendar (needed), Event, DisplayAlarm, Recurrence; the reply
//         maps proposed ids to the device's; 29 when the calendar got none.
//   1502  remove a record: tail {"id":...}.
//
// 7 no device, 8 a tail that is not JSON, 13 no service, 21 bad JSON, 2 a
// list the device cut off (what came was sent).
#pragma once

#include "zeb_module.h"

#include <rapidjson/document.h>

inline constexpr int64_t kCodeNoCalendarId = 29;

class ZEBModuleCalendar : public ZEBModule {
public:
    int execute(IPCPacket1* packet) override;

private:
    int64_t query(CommandContext& context);
    int64_t addCalendar(CommandContext& context, const rapidjson::Document& request);
    int64_t removeRecord(CommandContext& context, const rapidjson::Document& request);
};
