#include "zctl_contact_commands.h"

#include "zctl_command_runner.h"
#include "zeb_json_parse.h"
#include "zeb_parent_commands.h"
#include "zeb_parent_contacts.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <cstdio>
#include <functional>

namespace zctl {

namespace {

using zparent::Event;

const char kPhone[] = "com.apple.contacts.Phone Number";
const char kEmail[] = "com.apple.contacts.Email Address";

const char* codeText(int64_t code) {
    switch (code) {
        case 1: return "the device gave the group no id";
        case 7: return "no such device";
        case 8: return "the worker could not read the command's tail";
        case 13: return "the device's sync service did not start";
        case 21: return "the command lacks a required value";
        case 28: return "the device gave the contact no id";
        case -1: return "no answer from the worker";
        default: return "error";
    }
}

class ContactSession {
public:
    ContactSession(zparent::ParentLink& link, const ContactOptions& options)
        : link_(link), options_(options), runner_(link, options.timeoutSeconds, options.interrupted, codeText) {}

    bool ready(const std::string& udid) {
        if (!zparent::waitForReady(link_, udid, std::chrono::seconds(options_.timeoutSeconds), options_.interrupted)
                 .empty())
            return true;
        fprintf(stderr, "zebrelo-ctl: device %s did not become ready\n", udid.c_str());
        return false;
    }

    // Command 100: the groups (frames 101) and the contacts (frames 100).
    bool list(const std::string& udid, zparent::PagedList& groups, zparent::PagedList& contacts) {
        return runner_.run(100, udid, std::nullopt, [&](const Event& event) {
            if (!zparent::addToPagedList(groups, event, 101)) zparent::addToPagedList(contacts, event, 100);
        });
    }

    // The parsed tail of the one reply event of a change command.
    bool change(uint32_t command, const std::string& udid, const std::string& tail, rapidjson::Document& reply) {
        bool ok = false;
        const std::string text = runner_.change(command, udid, tail, ok);
        if (!text.empty()) zeb::parseJson(reply, text.c_str(), text.size());
        return ok;
    }

private:
    zparent::ParentLink& link_;
    const ContactOptions& options_;
    CommandRunner runner_;
};

std::string text(const rapidjson::Value& object, const char* key) {
    if (!object.IsObject()) return {};
    auto found = object.FindMember(key);
    return found != object.MemberEnd() && found->value.IsString() ? found->value.GetString() : "";
}

// The "value" of each child in the contact's list for the entity.
std::string childValues(const rapidjson::Value& contact, const char* entity) {
    std::string values;
    auto list = contact.FindMember(entity);
    if (list == contact.MemberEnd() || !list->value.IsArray()) return values;
    for (const auto& child : list->value.GetArray()) values += (values.empty() ? "" : ", ") + text(child, "value");
    return values;
}

std::string displayName(const rapidjson::Value& contact) {
    std::string name = text(contact, "first name");
    const std::string last = text(contact, "last name");
    if (!last.empty()) name += (name.empty() ? "" : " ") + last;
    return name.empty() ? text(contact, "company name") : name;
}

// The text padded with blanks to `width` characters as a terminal shows
// them: UTF-8 continuation bytes take no column.
std::string column(const std::string& text, size_t width) {
    size_t shown = 0;
    for (unsigned char c : text) shown += (c & 0xC0) != 0x80;
    return shown >= width ? text : text + std::string(width - shown, ' ');
}

void printJson(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    printf("%s\n", buffer.GetString());
}

int listContacts(ContactSession& session, const std::string& udid, bool json) {
    zparent::PagedList groups, contacts;
    if (!session.list(udid, groups, contacts)) return 1;
    if (json) {
        printJson(contacts.records);
        return 0;
    }
    if (contacts.count < 0) {
        printf("No contacts on the computer's side: the device keeps them in an account.\n");
        return 0;
    }
    printf("%-8s  %-28s  %-34s  %s\n", "ID", "NAME", "PHONES", "EMAILS");
    for (const auto& contact : contacts.records.GetObject())
        printf("%s  %s  %s  %s\n", column(contact.name.GetString(), 8).c_str(),
               column(displayName(contact.value), 28).c_str(), column(childValues(contact.value, kPhone), 34).c_str(),
               childValues(contact.value, kEmail).c_str());
    printf("%lld contact(s)\n", static_cast<long long>(contacts.count));
    return 0;
}

int listGroups(ContactSession& session, const std::string& udid, bool json) {
    zparent::PagedList groups, contacts;
    if (!session.list(udid, groups, contacts)) return 1;
    if (json) {
        printJson(groups.records);
        return 0;
    }
    printf("%-12s  %-28s  %s\n", "ID", "NAME", "MEMBERS");
    for (const auto& group : groups.records.GetObject()) {
        std::string members;
        auto list = group.value.FindMember("members");
        if (list != group.value.MemberEnd() && list->value.IsArray())
            for (const auto& member : list->value.GetArray())
                if (member.IsString()) members += (members.empty() ? "" : " ") + std::string(member.GetString());
        printf("%s  %s  %s\n", column(group.name.GetString(), 12).c_str(), column(text(group.value, "name"), 28).c_str(),
               members.c_str());
    }
    printf("%lld group(s)\n", static_cast<long long>(groups.count));
    return 0;
}

// contacts add UDID --name "First Last" [--phone N]... [--email E]...
int addContact(ContactSession& session, const std::vector<std::string>& words) {
    std::string name;
    std::vector<std::string> phones, emails;
    for (size_t i = 3; i + 1 < words.size(); i += 2) {
        if (words[i] == "--name") name = words[i + 1];
        else if (words[i] == "--phone") phones.push_back(words[i + 1]);
        else if (words[i] == "--email") emails.push_back(words[i + 1]);
        else {
            fprintf(stderr, "zebrelo-ctl: unknown option %s for contacts add\n", words[i].c_str());
            return 2;
        }
    }
    if (name.empty()) {
        fprintf(stderr, "zebrelo-ctl: contacts add needs --name\n");
        return 2;
    }
    zparent::ContactDraft draft = zparent::draftFromName(name);
    for (const auto& phone : phones) draft.phones.emplace_back("mobile", phone);
    for (const auto& email : emails) draft.emails.emplace_back("home", email);
    const std::string proposed = zparent::newProposedId();
    rapidjson::Document reply;
    if (!session.change(102, words[2], zparent::contactAddTail(draft, proposed), reply)) return 1;
    if (!reply.IsObject()) {
        fprintf(stderr, "zebrelo-ctl: the worker's answer held no ids\n");
        return 1;
    }
    for (const auto& entity : reply.GetObject()) {
        if (!entity.value.IsObject()) continue;
        for (const auto& id : entity.value.GetObject())
            printf("%-34s %s\n", entity.name.GetString(), id.value.IsString() ? id.value.GetString() : "?");
    }
    return 0;
}

int removeRecords(ContactSession& session, uint32_t command, const std::vector<std::string>& words, size_t first) {
    int status = 0;
    for (size_t i = first; i < words.size(); ++i) {
        rapidjson::Document reply;
        if (session.change(command, words[2], zparent::removeTail(words[i]), reply))
            printf("removed %s\n", words[i].c_str());
        else
            status = 1;
    }
    return status;
}

// A group's id as the change templates take it: without "Group/".
std::string bareGroupId(const std::string& id) { return id.rfind("Group/", 0) == 0 ? id.substr(6) : id; }

int printGroupReply(const rapidjson::Document& reply) {
    if (!reply.IsObject() || reply.MemberCount() == 0 || !reply.MemberBegin()->value.IsArray() ||
        reply.MemberBegin()->value.Size() < 2) {
        fprintf(stderr, "zebrelo-ctl: the worker's answer held no group id\n");
        return 1;
    }
    const auto& pair = reply.MemberBegin()->value;
    printf("%s  %s\n", pair[0].GetString(), pair[1].GetString());
    return 0;
}

// groups rename UDID ID NAME / groups members UDID ID MEMBER...: the
// device takes a group's name and members together, so the other half comes
// from the device's own list.
int changeGroup(ContactSession& session, const std::vector<std::string>& words, bool rename) {
    zparent::PagedList groups, contacts;
    if (!session.list(words[2], groups, contacts)) return 1;
    const std::string id = bareGroupId(words[3]);
    const std::string key = "Group/" + id;
    if (!groups.records.HasMember(key.c_str())) {
        fprintf(stderr, "zebrelo-ctl: the device has no group %s\n", key.c_str());
        return 1;
    }
    const rapidjson::Value& group = groups.records[key.c_str()];
    std::string name = text(group, "name");
    std::vector<std::string> members;
    if (rename) {
        name = words[4];
        if (group.HasMember("members") && group["members"].IsArray())
            for (const auto& member : group["members"].GetArray())
                if (member.IsString()) members.emplace_back(member.GetString());
    } else {
        members.assign(words.begin() + 4, words.end());
    }
    rapidjson::Document reply;
    if (!session.change(106, words[2], zparent::groupChangeTail(id, id, name, members), reply)) return 1;
    return printGroupReply(reply);
}

int usage(const char* what) {
    fprintf(stderr, "zebrelo-ctl: usage: %s\n", what);
    return 2;
}

}  // namespace

bool isContactVerb(const std::string& verb) { return verb == "contacts" || verb == "groups"; }

int runContactVerb(zparent::ParentLink& link, const std::string& verb, const ContactOptions& options) {
    const auto& words = options.words;
    ContactSession session(link, options);
    const bool hasAction = words.size() > 2 && (words[1] == "add" || words[1] == "remove" || words[1] == "rename" ||
                                                words[1] == "members");
    const std::string udid = hasAction ? words[2] : (words.size() > 1 ? words[1] : "");
    if (udid.empty()) return usage("contacts|groups UDID, or contacts|groups ACTION UDID ...");
    if (!session.ready(udid)) return 1;
    if (!hasAction) return verb == "contacts" ? listContacts(session, udid, options.json)
                                              : listGroups(session, udid, options.json);
    const std::string& action = words[1];
    if (verb == "contacts") {
        if (action == "add") return addContact(session, words);
        if (action == "remove" && words.size() > 3) return removeRecords(session, 103, words, 3);
        return usage("contacts add UDID --name NAME [--phone N]... [--email E]... | contacts remove UDID ID...");
    }
    if (action == "add" && words.size() == 4) {
        rapidjson::Document reply;
        if (!session.change(104, udid, zparent::groupAddTail(zparent::newProposedId(), words[3]), reply)) return 1;
        return printGroupReply(reply);
    }
    if (action == "rename" && words.size() == 5) return changeGroup(session, words, true);
    if (action == "members" && words.size() >= 4) return changeGroup(session, words, false);
    if (action == "remove" && words.size() > 3) {
        std::vector<std::string> keys(words.begin(), words.begin() + 3);
        for (size_t i = 3; i < words.size(); ++i) keys.push_back("Group/" + bareGroupId(words[i]));
        return removeRecords(session, 105, keys, 3);
    }
    return usage("groups add UDID NAME | groups rename UDID ID NAME | groups members UDID ID [CONTACT-ID]... | "
                 "groups remove UDID ID...");
}

}  // namespace zctl
