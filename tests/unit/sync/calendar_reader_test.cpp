// The calendar reader on batches as a device sends them: records link as
// they arrive, and the JSON keeps its own spelling and order.
#include "zeb_bound_provider.h"
#include "zeb_calendar_reader.h"
#include "zeb_sync_matchers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {

std::string record(const std::string& id, const std::string& entity, const std::string& fields) {
    return "<key>" + id + "</key><dict><key>com.apple.syncservices.RecordEntityName</key><string>com.apple.calendars." +
           entity + "</string>" + fields + "</dict>";
}

std::string links(const char* key, std::initializer_list<const char*> ids) {
    std::string text = std::string("<key>") + key + "</key><array>";
    for (const char* id : ids) text += std::string("<string>") + id + "</string>";
    return text + "</array>";
}

void feed(CalendarReplyContext& reply, const std::string& records) {
    const std::string xml = Plist("<array><string>SDMessageProcessChanges</string><string>com.apple.Calendars</string>"
                                  "<dict>" + records + "</dict><true/></array>");
    bool keepWaiting = true;
    uint8_t result = 0;
    CalendarReplyHandler(&reply, reinterpret_cast<const uint8_t*>(xml.data()), static_cast<uint32_t>(xml.size()),
                         &keepWaiting, &result);
}

class CalendarReader : public ::testing::Test {
protected:
    void SetUp() override {
        BoundProvider();
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
    }
    void TearDown() override {
        unsetenv("TZ");
        tzset();
    }
    CalendarReplyContext reply_;
};

TEST_F(CalendarReader, EventsRecurrencesAndAlarmsLinkAsTheyArrive) {
    feed(reply_, record("cal-1", "Calendar", "<key>title</key><string>Home &amp; Garden</string>"
                                             "<key>read only</key><integer>1</integer>" +
                                                 links("colorComponents", {}) ) +
                     record("cal-2", "Calendar", "<key>title</key><string>Work</string>"
                                                 "<key>colorComponents</key><array><integer>1</integer><integer>2"
                                                 "</integer><integer>3</integer><integer>255</integer></array>") +
                     // An alarm ahead of its event is lost.
                     record("al-0", "DisplayAlarm", "<key>triggerduration</key><integer>-900</integer>" +
                                                        links("owner", {"ev-1"})));
    feed(reply_, record("ev-1", "Event", "<key>summary</key><string>Standup</string>"
                                         "<key>start date</key><date>2024-07-01T07:30:00Z</date>"
                                         "<key>end date</key><date>2024-07-01T07:45:00Z</date>" +
                                             links("calendar", {"cal-1", "cal-2", "cal-9"})) +
                     record("ev-2", "Event", "<key>summary</key><string>Holiday</string>"
                                             "<key>all day</key><integer>1</integer>" + links("calendar", {"cal-2"})));
    feed(reply_, record("rec-1", "Recurrence", "<key>frequency</key><string>daily</string>" + links("owner", {"ev-1"})) +
                     record("rec-2", "Recurrence", "<key>frequency</key><string>weekly</string>"
                                                   "<key>interval</key><integer>2</integer>" + links("owner", {"ev-1"})) +
                     record("al-1", "DisplayAlarm", "<key>description</key><string>Soon</string>"
                                                    "<key>triggerduration</key><integer>-300</integer>" +
                                                        links("owner", {"ev-1"})));
    rapidjson::Document calendars;
    calendar::buildCalendars(reply_, calendars);
    ASSERT_EQ(calendars.Size(), 2u);
    const auto& home = calendars[0];
    EXPECT_STREQ(home["title"].GetString(), "Home & Garden");
    EXPECT_EQ(home["read_only"].GetInt(), 1);
    EXPECT_STREQ(home["com_apple_syncservices_RecordEntityName"].GetString(), "com.apple.calendars.Calendar");
    EXPECT_EQ(calendars[1]["colorComponents"][3].GetInt64(), 255);

    // One event in both calendars, with the last recurrence and only the
    // alarm that came after it.
    ASSERT_EQ(home["events"].Size(), 1u);
    ASSERT_EQ(calendars[1]["events"].Size(), 2u);
    const auto& standup = home["events"][0];
    EXPECT_STREQ(standup["start_date_source"].GetString(), "2024-07-01T07:30:00Z");
    EXPECT_STREQ(standup["start_date"].GetString(), "2024-07-01 09:30:00");
    EXPECT_EQ(standup["all_day"].GetInt64(), 0);
    EXPECT_STREQ(standup["recurrence"]["id"].GetString(), "rec-2");
    EXPECT_EQ(standup["recurrence"]["interval"].GetInt64(), 2);
    EXPECT_STREQ(standup["recurrence"]["until"].GetString(), "");  // no end
    ASSERT_EQ(standup["display_alarms"].Size(), 1u);
    EXPECT_EQ(standup["display_alarms"][0]["triggerduration"].GetInt64(), -300);
    EXPECT_EQ(calendars[1]["events"][1]["all_day"].GetInt64(), 1);
    EXPECT_FALSE(calendars[1]["events"][1].HasMember("recurrence"));
    EXPECT_FALSE(calendars[1]["events"][1].HasMember("display_alarms"));

    // The keys of an event in their order.
    std::vector<std::string> keys;
    for (const auto& member : standup.GetObject()) keys.emplace_back(member.name.GetString());
    EXPECT_EQ(keys, (std::vector<std::string>{"id", "start_date", "start_date_source", "end_date", "end_date_source",
                                               "url", "all_day", "start_date_timezone",
                                               "com_apple_syncservices_RecordEntityName", "summary", "description",
                                               "location", "recurrence", "display_alarms"}));
}

}  // namespace
