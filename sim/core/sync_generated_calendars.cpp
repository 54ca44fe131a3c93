#include "core/sync_generated_calendars.h"

#include <string>

namespace zsim {
namespace {

const char* const kTitles[] = {"Home", "Work", "Family", "Sports", "Travel", "School", "Birthdays", "Projects"};
const char* const kSummaries[] = {"Stand-up",     "Dentist",          "Lunch with Anna", "Piano lesson",
                                  "Team review",  "Flight to Lisbon", "Yoga",            "Parents' evening",
                                  "Car service",  "Book club"};
const char* const kLocations[] = {"Room 4.12", "Hauptstraße 12, Berlin", "Café Central", "Online", "Airport T2"};
// Red, green, blue, alpha, each 0-255.
const int kColors[][4] = {{255, 59, 48, 255}, {0, 122, 255, 255},  {52, 199, 89, 255}, {255, 149, 0, 255},
                          {175, 82, 222, 255}, {255, 45, 85, 255}, {90, 200, 250, 255}, {162, 132, 94, 255}};

// Monday 2024-01-08 09:00 UTC.
constexpr int64_t kFirstStart = 1704704400;
constexpr int64_t kDay = 86400;

plist_t calendar(uint64_t i) {
    plist_t record = newSyncRecord("com.apple.calendars.Calendar");
    std::string title = kTitles[i % countOf(kTitles)];
    if (i >= countOf(kTitles)) title += " " + std::to_string(i / countOf(kTitles) + 1);
    setString(record, "title", title);
    // Now and then a subscribed calendar the user cannot change.
    setInteger(record, "read only", i % 10 == 9 ? 1 : 0);
    plist_t color = plist_new_array();
    for (int c : kColors[i % countOf(kColors)]) plist_array_append_item(color, plist_new_uint(static_cast<uint64_t>(c)));
    plist_dict_set_item(record, "colorComponents", color);
    return record;
}

plist_t event(uint64_t n, uint64_t day, const std::string& calendarId) {
    plist_t record = newSyncRecord("com.apple.calendars.Event");
    setString(record, "summary", kSummaries[n % countOf(kSummaries)]);
    setString(record, "location", kLocations[n % countOf(kLocations)]);
    // Differs from event to event: a binary property list stores equal
    // strings once, and benchmarks want pages of a real size.
    setString(record, "description", "Generated event " + std::to_string(n + 1) + " in " + calendarId + ".");
    if (n % 3 == 0) setString(record, "url", "https://meet.example.com/" + std::to_string(n + 1));
    const int64_t midnight = kFirstStart - 9 * 3600 + static_cast<int64_t>(day) * kDay;
    if (n % 7 == 6) {
        setDate(record, "start date", midnight);
        setDate(record, "end date", midnight + kDay);
        setInteger(record, "all day", 1);
    } else {
        const int64_t start = midnight + (8 + static_cast<int64_t>(n % 9)) * 3600;
        setDate(record, "start date", start);
        setDate(record, "end date", start + (n % 2 ? 3600 : 1800));
        setString(record, "start date.timezone", "Europe/Berlin");
    }
    setLink(record, "calendar", calendarId);
    return record;
}

}  // namespace

void generateCalendars(plist_t generate, GeneratedIds& ids, SyncRecordList& out) {
    const uint64_t count = dictUInt(generate, "Count").value_or(0);
    const uint64_t perCalendar = dictUInt(generate, "EventsPerCalendar").value_or(0);
    out.reserve(out.size() + count * (1 + perCalendar));
    uint64_t n = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const std::string calendarId = ids.next("cal-");
        out.emplace_back(calendarId, adopt(calendar(i)));
        for (uint64_t k = 0; k < perCalendar; ++k, ++n) out.emplace_back(ids.next("ev-"), adopt(event(n, k, calendarId)));
    }
}

}  // namespace zsim
