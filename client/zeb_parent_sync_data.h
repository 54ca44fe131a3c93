// What a parent sends to add calendars, bookmarks and notes, and how it
// puts their lists back together.
#pragma once

#include "zeb_parent_frame.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <vector>

namespace zparent {

struct EventDraft {
    std::string summary;
    std::string start, end;  // UTC texts "YYYY-MM-DDTHH:MM:SSZ"
};

// The tail of 1501: a calendar (proposed id `calendarId`) and its events,
// each linked to the calendar.
std::string calendarAddTail(const std::string& calendarId, const std::string& title,
                            const std::vector<EventDraft>& events);

// The tail of 1401: the change message itself, one bookmark under a folder
// (none: a bookmark at the top).
std::string bookmarkAddText(const std::string& proposedId, const std::string& title, const std::string& url,
                            const std::string& folderId);

// The tail of 1201.
std::string noteAddTail(const std::string& proposedId, const std::string& title, const std::string& content);

// A list paged as arrays (calendars, notes) or as one tree per event
// (bookmarks): the head's count and every element of every chunk.
struct PagedItems {
    bool headSeen = false;
    int64_t count = 0;
    size_t chunks = 0;
    rapidjson::Document items;
    PagedItems() { items.SetArray(); }
};

// Adds one event of `commandType` to the list; a chunk that is an array
// adds its elements, any other JSON chunk adds itself.
bool addToPagedItems(PagedItems& list, const Event& event, uint32_t commandType);

}  // namespace zparent
