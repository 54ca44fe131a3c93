// What a parent sends to read and change a device's contacts, and how it
// puts the paged lists back together.
#pragma once

#include "zeb_parent_frame.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace zparent {

// A new contact as a person types it. Children are (type, value) pairs.
struct ContactDraft {
    std::map<std::string, std::string> fields;  // "first name", "last name", "company name", ...
    std::vector<std::pair<std::string, std::string>> phones;
    std::vector<std::pair<std::string, std::string>> emails;
    std::vector<std::pair<std::string, std::string>> urls;
    // Dates as UTC texts "YYYY-MM-DDTHH:MM:SSZ"; they travel as property list dates.
    std::vector<std::pair<std::string, std::string>> dates;
};

// "First Last" split at the last blank into first and last name.
ContactDraft draftFromName(const std::string& fullName);

// One record of a change message: string fields (those named in
// `dateFields` travel as dates), integer fields, and links to other
// records by id ("contact", "calendar", "owner", "parent").
struct ChangeRecord {
    std::string entity;
    std::map<std::string, std::string> fields;
    std::vector<std::string> owners;  // the "contact" link of a child
    std::vector<std::string> dateFields;
    std::map<std::string, int64_t> integers;
    std::map<std::string, std::vector<std::string>> links;
};

// The XML text of an "SDMessageProcessChanges" message of `dataClass`
// whose actions name `entityNames`.
std::string changeMessageText(const std::string& dataClass, const std::vector<std::string>& entityNames,
                              const std::vector<std::pair<std::string, ChangeRecord>>& records, bool moreToCome);

// The same for the contact class, naming the entity (and groups beside
// contacts).
std::string contactChangeText(const std::string& entity, const std::vector<std::pair<std::string, ChangeRecord>>& records,
                              bool moreToCome);

// The tail of command 102: {entity name: change text} for the contact and
// each kind of child it has, all linked to `proposedId`.
std::string contactAddTail(const ContactDraft& draft, const std::string& proposedId);

// A fresh proposed id, in the form hosts use (an upper-case UUID).
std::string newProposedId();

// Tails of the other contact commands.
std::string removeTail(const std::string& id);
std::string groupAddTail(const std::string& id, const std::string& name);
std::string groupChangeTail(const std::string& guid, const std::string& id, const std::string& name,
                            const std::vector<std::string>& members);

// A list as the worker pages it: the head's count and every chunk's members
// merged into one object.
struct PagedList {
    bool headSeen = false;
    int64_t count = 0;
    size_t chunks = 0;
    rapidjson::Document records;
    PagedList() { records.SetObject(); }
};

// Adds one event to the list when it belongs to it (frames of `commandType`
// with stage 0 and packetStatus 2 are heads, stage 1 are chunks).
bool addToPagedList(PagedList& list, const Event& event, uint32_t commandType);

}  // namespace zparent
