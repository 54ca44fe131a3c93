#include "zeb_parent_contacts.h"

#include "zeb_json_parse.h"
#include "zeb_parent_commands.h"

#include <plist/plist.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <ctime>
#include <random>

namespace zparent {

namespace {

const char kContactClass[] = "com.apple.Contacts";
const char kEntityKey[] = "com.apple.syncservices.RecordEntityName";
const char kContact[] = "com.apple.contacts.Contact";
const char kGroup[] = "com.apple.contacts.Group";

// Seconds since 2001-01-01 of a UTC text, or false.
bool appleSeconds(const std::string& text, int64_t& seconds) {
    tm fields{};
    if (strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &fields) == nullptr) return false;
    seconds = static_cast<int64_t>(timegm(&fields)) - 978307200;
    return true;
}

plist_t recordPlist(const ChangeRecord& record) {
    plist_t dict = plist_new_dict();
    plist_dict_set_item(dict, kEntityKey, plist_new_string(record.entity.c_str()));
    for (const auto& [name, value] : record.fields) {
        bool isDate = false;
        for (const auto& dateField : record.dateFields) isDate |= dateField == name;
        int64_t seconds = 0;
        if (isDate && appleSeconds(value, seconds))
            plist_dict_set_item(dict, name.c_str(), plist_new_date(static_cast<int32_t>(seconds), 0));
        else
            plist_dict_set_item(dict, name.c_str(), plist_new_string(value.c_str()));
    }
    std::map<std::string, std::vector<std::string>> links = record.links;
    if (!record.owners.empty()) links["contact"] = record.owners;
    for (const auto& [name, ids] : links) {
        plist_t list = plist_new_array();
        for (const auto& id : ids) plist_array_append_item(list, plist_new_string(id.c_str()));
        plist_dict_set_item(dict, name.c_str(), list);
    }
    for (const auto& [name, value] : record.integers)
        plist_dict_set_item(dict, name.c_str(), plist_new_uint(static_cast<uint64_t>(value)));
    return dict;
}

void addChildren(std::map<std::string, std::vector<std::pair<std::string, ChangeRecord>>>& byEntity,
                 const std::string& entity, const std::vector<std::pair<std::string, std::string>>& items,
                 const std::string& proposedId, const char* tag, bool isDate) {
    int n = 0;
    for (const auto& [type, value] : items) {
        ChangeRecord child;
        child.entity = entity;
        child.fields["type"] = type;
        child.fields["value"] = value;
        if (isDate) child.dateFields.push_back("value");
        child.owners.push_back(proposedId);
        // The child's own id holds the contact's, so the worker's id patch
        // keeps it unique once the contact has its device id.
        byEntity[entity].emplace_back(proposedId + "/" + tag + "/" + std::to_string(n++), child);
    }
}


}  // namespace

ContactDraft draftFromName(const std::string& fullName) {
    ContactDraft draft;
    const size_t blank = fullName.find_last_of(' ');
    if (blank == std::string::npos) {
        draft.fields["first name"] = fullName;
    } else {
        draft.fields["first name"] = fullName.substr(0, blank);
        draft.fields["last name"] = fullName.substr(blank + 1);
    }
    draft.fields["display as company"] = "person";
    return draft;
}

std::string changeMessageText(const std::string& dataClass, const std::vector<std::string>& entityNames,
                              const std::vector<std::pair<std::string, ChangeRecord>>& records, bool moreToCome) {
    plist_t message = plist_new_array();
    plist_array_append_item(message, plist_new_string("SDMessageProcessChanges"));
    plist_array_append_item(message, plist_new_string(dataClass.c_str()));
    plist_t dict = plist_new_dict();
    for (const auto& [id, record] : records) plist_dict_set_item(dict, id.c_str(), recordPlist(record));
    plist_array_append_item(message, dict);
    plist_array_append_item(message, plist_new_bool(moreToCome));
    plist_t actions = plist_new_dict();
    plist_t names = plist_new_array();
    for (const auto& name : entityNames) plist_array_append_item(names, plist_new_string(name.c_str()));
    plist_dict_set_item(actions, "SyncDeviceLinkEntityNamesKey", names);
    plist_dict_set_item(actions, "SyncDeviceLinkAllRecordsOfPulledEntityTypeSentKey", plist_new_bool(1));
    plist_array_append_item(message, actions);
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(message, &xml, &length);
    std::string text = xml ? std::string(xml, length) : std::string();
    free(xml);
    plist_free(message);
    return text;
}

std::string contactChangeText(const std::string& entity, const std::vector<std::pair<std::string, ChangeRecord>>& records,
                              bool moreToCome) {
    std::vector<std::string> names{entity};
    if (entity == kContact) names.push_back(kGroup);
    return changeMessageText(kContactClass, names, records, moreToCome);
}

std::string contactAddTail(const ContactDraft& draft, const std::string& proposedId) {
    std::map<std::string, std::vector<std::pair<std::string, ChangeRecord>>> byEntity;
    addChildren(byEntity, "com.apple.contacts.Phone Number", draft.phones, proposedId, "phone", false);
    addChildren(byEntity, "com.apple.contacts.Email Address", draft.emails, proposedId, "email", false);
    addChildren(byEntity, "com.apple.contacts.URL", draft.urls, proposedId, "url", false);
    addChildren(byEntity, "com.apple.contacts.Date", draft.dates, proposedId, "date", true);

    ChangeRecord contact;
    contact.entity = kContact;
    contact.fields = draft.fields;
    contact.dateFields = {"birthday"};
    std::vector<std::pair<std::string, std::string>> tail;
    tail.emplace_back(kContact, contactChangeText(kContact, {{proposedId, contact}}, !byEntity.empty()));
    size_t left = byEntity.size();
    for (const auto& [entity, records] : byEntity) tail.emplace_back(entity, contactChangeText(entity, records, --left > 0));
    return jsonStringObject(tail);
}

std::string newProposedId() {
    static thread_local std::mt19937_64 random{std::random_device{}()};
    const uint64_t high = random(), low = random();
    char text[40];
    snprintf(text, sizeof text, "%08X-%04X-%04X-%04X-%012llX", static_cast<unsigned>(high >> 32),
             static_cast<unsigned>((high >> 16) & 0xFFFF), static_cast<unsigned>(high & 0xFFFF),
             static_cast<unsigned>(low >> 48), static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFULL));
    return text;
}

std::string removeTail(const std::string& id) { return jsonStringObject({{"id", id}}); }

std::string groupAddTail(const std::string& id, const std::string& name) {
    return jsonStringObject({{"id", id}, {"name", name}});
}

std::string groupChangeTail(const std::string& guid, const std::string& id, const std::string& name,
                            const std::vector<std::string>& members) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("guid");
    writer.String(guid.c_str(), static_cast<rapidjson::SizeType>(guid.size()));
    writer.Key("id");
    writer.String(id.c_str(), static_cast<rapidjson::SizeType>(id.size()));
    writer.Key("name");
    writer.String(name.c_str(), static_cast<rapidjson::SizeType>(name.size()));
    writer.Key("members");
    writer.StartArray();
    for (const auto& member : members) writer.String(member.c_str(), static_cast<rapidjson::SizeType>(member.size()));
    writer.EndArray();
    writer.EndObject();
    return buffer.GetString();
}

bool addToPagedList(PagedList& list, const Event& event, uint32_t commandType) {
    if (event.frame.commandType != commandType || event.frame.packetStatus != 2) return false;
    if (event.stage == 0) {
        rapidjson::Document info;
        zeb::parseJson(info, event.info.c_str(), event.info.size());
        if (info.IsObject() && info.HasMember("Count") && info["Count"].IsInt64()) list.count = info["Count"].GetInt64();
        list.headSeen = true;
        return true;
    }
    if (event.stage != 1) return false;
    rapidjson::Document chunk;
    zeb::parseJson(chunk, event.tail.c_str(), event.tail.size());
    if (!chunk.IsObject()) return false;
    auto& allocator = list.records.GetAllocator();
    for (auto& member : chunk.GetObject())
        list.records.AddMember(rapidjson::Value(member.name, allocator), rapidjson::Value(member.value, allocator), allocator);
    ++list.chunks;
    return true;
}

}  // namespace zparent
