#include "zeb_parent_sync_data.h"

#include "zeb_json_parse.h"
#include "zeb_parent_commands.h"

#include "zeb_parent_contacts.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace zparent {

namespace {

const char kCalendars[] = "com.apple.Calendars";
const char kCalendar[] = "com.apple.calendars.Calendar";
const char kEvent[] = "com.apple.calendars.Event";


}  // namespace

std::string calendarAddTail(const std::string& calendarId, const std::string& title,
                            const std::vector<EventDraft>& events) {
    ChangeRecord calendar;
    calendar.entity = kCalendar;
    calendar.fields["title"] = title;
    calendar.integers["read only"] = 0;
    std::vector<std::pair<std::string, std::string>> tail;
    tail.emplace_back(kCalendar, changeMessageText(kCalendars, {kCalendar}, {{calendarId, calendar}}, !events.empty()));
    if (!events.empty()) {
        std::vector<std::pair<std::string, ChangeRecord>> records;
        int n = 0;
        for (const auto& draft : events) {
            ChangeRecord event;
            event.entity = kEvent;
            event.fields = {{"summary", draft.summary}, {"start date", draft.start}, {"end date", draft.end}};
            event.dateFields = {"start date", "end date"};
            event.links["calendar"] = {calendarId};
            // The event's own id holds the calendar's, so the worker's id
            // patch keeps it unique once the calendar has its device id.
            records.emplace_back(calendarId + "/event/" + std::to_string(n++), event);
        }
        tail.emplace_back(kEvent, changeMessageText(kCalendars, {kEvent}, records, false));
    }
    return jsonStringObject(tail);
}

std::string bookmarkAddText(const std::string& proposedId, const std::string& title, const std::string& url,
                            const std::string& folderId) {
    ChangeRecord bookmark;
    bookmark.entity = "com.apple.bookmarks.Bookmark";
    bookmark.fields = {{"name", title}, {"url", url}};
    if (!folderId.empty()) bookmark.links["parent"] = {folderId};
    bookmark.integers["position"] = 0;
    return changeMessageText("com.apple.Bookmarks", {"com.apple.bookmarks.Bookmark"}, {{proposedId, bookmark}}, false);
}

std::string noteAddTail(const std::string& proposedId, const std::string& title, const std::string& content) {
    return jsonStringObject({{"id", proposedId}, {"title", title}, {"content", content}});
}

bool addToPagedItems(PagedItems& list, const Event& event, uint32_t commandType) {
    if (event.frame.commandType != commandType || event.frame.packetStatus != 2) return false;
    if (event.stage == 0) {
        rapidjson::Document info;
        zeb::parseJson(info, event.info.c_str(), event.info.size());
        if (!info.IsObject() || !info.HasMember("Count")) return false;
        if (info["Count"].IsInt64()) list.count = info["Count"].GetInt64();
        list.headSeen = true;
        return true;
    }
    if (event.stage != 1) return false;
    rapidjson::Document chunk;
    zeb::parseJson(chunk, event.tail.c_str(), event.tail.size());
    if (chunk.HasParseError()) return false;
    auto& allocator = list.items.GetAllocator();
    if (chunk.IsArray()) {
        for (auto& item : chunk.GetArray()) list.items.PushBack(rapidjson::Value(item, allocator), allocator);
    } else {
        list.items.PushBack(rapidjson::Value(chunk, allocator), allocator);
    }
    ++list.chunks;
    return true;
}

}  // namespace zparent
