#include "core/sync_data_class.h"

namespace zsim {
namespace {

// Contact children as the device numbers them; Related Name has no
// category in open hosts' code, 17 is the device's own choice.
SyncEntity contactChild(const char* name, int category) {
    return {name, 1, "", category, "contact", true};
}

std::vector<SyncDataClass> makeClasses() {
    std::vector<SyncDataClass> classes;
    classes.push_back({"com.apple.Contacts", "Contacts", 106,
                       {{"com.apple.contacts.Contact", 0, "", 0, nullptr, false},
                        {"com.apple.contacts.Group", 0, "Group/", 0, nullptr, false},
                        contactChild("com.apple.contacts.Phone Number", 3),
                        contactChild("com.apple.contacts.Email Address", 4),
                        contactChild("com.apple.contacts.Street Address", 5),
                        contactChild("com.apple.contacts.Date", 12),
                        contactChild("com.apple.contacts.IM", 13),
                        contactChild("com.apple.contacts.Related Name", 17),
                        contactChild("com.apple.contacts.URL", 22)},
                       {"contact", "members"},
                       {"", 2, "r-", 0, "contact", false},
                       true});
    classes.push_back({"com.apple.Calendars", "Calendars", 110,
                       {{"com.apple.calendars.Calendar", 0, "cal-", 0, nullptr, false},
                        {"com.apple.calendars.Event", 1, "ev-", 0, "calendar", true},
                        {"com.apple.calendars.DisplayAlarm", 2, "al-", 0, "owner", true},
                        {"com.apple.calendars.AudioAlarm", 2, "al-", 0, "owner", true},
                        {"com.apple.calendars.Recurrence", 2, "rec-", 0, "owner", true},
                        {"com.apple.calendars.Attendee", 2, "att-", 0, "owner", true},
                        {"com.apple.calendars.Organizer", 2, "org-", 0, "owner", true}},
                       {"calendar", "owner"},
                       {"", 3, "r-", 0, "owner", false},
                       false});
    // Root folders have no parent, and a bookmark may sit at the top.
    classes.push_back({"com.apple.Bookmarks", "Bookmarks", 102,
                       {{"com.apple.bookmarks.Folder", 0, "f-", 0, "parent", false},
                        {"com.apple.bookmarks.Bookmark", 1, "b-", 0, "parent", false}},
                       {"parent"},
                       {"", 2, "r-", 0, "parent", false},
                       false});
    classes.push_back({"com.apple.Notes", "Notes", 102,
                       {{"com.apple.notes.Note", 0, "n-", 0, nullptr, false}},
                       {},
                       {"", 1, "r-", 0, nullptr, false},
                       false});
    return classes;
}

}  // namespace

int SyncDataClass::entityIndex(const std::string& entityName) const {
    for (size_t i = 0; i < entities.size(); ++i)
        if (entityName == entities[i].name) return static_cast<int>(i);
    return -1;
}

const std::vector<SyncDataClass>& syncDataClasses() {
    static const std::vector<SyncDataClass> classes = makeClasses();
    return classes;
}

const SyncDataClass* findSyncDataClass(const std::string& name) {
    for (const auto& c : syncDataClasses())
        if (name == c.name) return &c;
    return nullptr;
}

}  // namespace zsim
