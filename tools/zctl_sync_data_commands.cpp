#include "zctl_sync_data_commands.h"

#include "zctl_command_runner.h"
#include "zeb_parent_commands.h"
#include "zeb_parent_contacts.h"
#include "zeb_parent_sync_data.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>

namespace zctl {

namespace {

using zparent::Event;

const char* codeText(int64_t code) {
    switch (code) {
        case 7: return "no such device";
        case 8: return "the worker could not read the command's tail";
        case 13: return "the device's sync service did not start";
        case 21: return "the command lacks a required value";
        case 29: return "the device gave the calendar no id";
        case 30: return "the device gave the note no id";
        case -1: return "no answer from the worker";
        default: return "error";
    }
}

struct Run {
    CommandRunner runner;
    const SyncDataOptions& options;

    bool list(uint32_t number, const std::string& udid, zparent::PagedItems& items) {
        return runner.run(number, udid, std::nullopt,
                          [&](const Event& event) { zparent::addToPagedItems(items, event, number); });
    }
    std::string change(uint32_t number, const std::string& udid, const std::string& tail, bool& ok) {
        return runner.change(number, udid, tail, ok);
    }
};

std::string text(const rapidjson::Value& object, const char* key) {
    if (!object.IsObject() || !object.HasMember(key) || !object[key].IsString()) return {};
    return object[key].GetString();
}

void printJson(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    printf("%s\n", buffer.GetString());
}

bool accountOnly(int64_t count, const char* what) {
    if (count >= 0) return false;
    printf("No %s on the computer's side: the device keeps them in an account.\n", what);
    return true;
}

// "--key value" options after the fixed words.
std::map<std::string, std::vector<std::string>> optionsFrom(const std::vector<std::string>& words, size_t first) {
    std::map<std::string, std::vector<std::string>> found;
    for (size_t i = first; i + 1 < words.size(); i += 2) found[words[i]].push_back(words[i + 1]);
    return found;
}

int calendars(Run& run, const std::string& udid, const std::vector<std::string>& words) {
    if (words.size() > 2 && words[1] == "add") {
        auto options = optionsFrom(words, 3);
        if (options["--title"].empty()) return fprintf(stderr, "zebrelo-ctl: calendars add needs --title\n"), 2;
        std::vector<zparent::EventDraft> events;
        for (const auto& given : options["--event"]) {
            // TITLE@START..END, both times in UTC as YYYY-MM-DDTHH:MM:SSZ
            const size_t at = given.find('@'), dots = given.find("..");
            if (at == std::string::npos || dots == std::string::npos || dots < at)
                return fprintf(stderr, "zebrelo-ctl: an event is TITLE@START..END: %s\n", given.c_str()), 2;
            events.push_back({given.substr(0, at), given.substr(at + 1, dots - at - 1), given.substr(dots + 2)});
        }
        bool ok = false;
        const std::string reply =
            run.change(1501, udid, zparent::calendarAddTail(zparent::newProposedId(), options["--title"][0], events), ok);
        if (ok) printf("%s\n", reply.c_str());
        return ok ? 0 : 1;
    }
    if (words.size() > 3 && words[1] == "remove") {
        bool ok = false;
        run.change(1502, udid, zparent::removeTail(words[3]), ok);
        return ok ? 0 : 1;
    }
    zparent::PagedItems items;
    if (!run.list(1500, udid, items)) return 1;
    if (run.options.json) return printJson(items.items), 0;
    if (accountOnly(items.count, "calendars")) return 0;
    for (const auto& calendar : items.items.GetArray()) {
        printf("%s  %s (%u events)\n", text(calendar, "id").c_str(), text(calendar, "title").c_str(),
               calendar["events"].Size());
        for (const auto& event : calendar["events"].GetArray())
            printf("    %s  %-19s  %s\n", text(event, "id").c_str(), text(event, "start_date").c_str(),
                   text(event, "summary").c_str());
    }
    printf("%lld calendar(s)\n", static_cast<long long>(items.count));
    return 0;
}

void printTree(const rapidjson::Value& node, int depth) {
    const bool folder = text(node, "com_apple_syncservices_RecordEntityName") != "com.apple.bookmarks.Bookmark";
    printf("%*s%s%s  %s%s\n", depth * 2, "", folder ? "+ " : "- ", text(node, "name").c_str(),
           text(node, "url").c_str(), ("  [" + text(node, "id") + "]").c_str());
    for (const auto& child : node["children"].GetArray()) printTree(child, depth + 1);
}

int bookmarks(Run& run, const std::string& udid, const std::vector<std::string>& words) {
    if (words.size() > 2 && words[1] == "add") {
        auto options = optionsFrom(words, 3);
        if (options["--title"].empty() || options["--url"].empty())
            return fprintf(stderr, "zebrelo-ctl: bookmarks add needs --title and --url\n"), 2;
        const std::string folder = options["--folder"].empty() ? std::string() : options["--folder"][0];
        bool ok = false;
        run.change(1401, udid,
                   zparent::bookmarkAddText(zparent::newProposedId(), options["--title"][0], options["--url"][0], folder),
                   ok);
        return ok ? 0 : 1;
    }
    if (words.size() > 3 && words[1] == "remove") {
        bool ok = false;
        run.change(1402, udid, zparent::removeTail(words[3]), ok);
        return ok ? 0 : 1;
    }
    zparent::PagedItems trees;
    if (!run.list(1400, udid, trees)) return 1;
    if (run.options.json) return printJson(trees.items), 0;
    if (accountOnly(trees.count, "bookmarks")) return 0;
    for (const auto& root : trees.items.GetArray()) printTree(root, 0);
    printf("%lld bookmark(s)\n", static_cast<long long>(trees.count));
    return 0;
}

int notes(Run& run, const std::string& udid, const std::vector<std::string>& words) {
    if (words.size() > 2 && words[1] == "add") {
        auto options = optionsFrom(words, 3);
        if (options["--title"].empty()) return fprintf(stderr, "zebrelo-ctl: notes add needs --title\n"), 2;
        std::string body;
        if (!options["--body-file"].empty()) {
            std::ifstream in(options["--body-file"][0], std::ios::binary);
            if (!in) return fprintf(stderr, "zebrelo-ctl: cannot read %s\n", options["--body-file"][0].c_str()), 1;
            body.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        }
        bool ok = false;
        const std::string reply =
            run.change(1201, udid, zparent::noteAddTail(zparent::newProposedId(), options["--title"][0], body), ok);
        if (ok) printf("%s\n", reply.c_str());
        return ok ? 0 : 1;
    }
    zparent::PagedItems items;
    if (!run.list(1200, udid, items)) return 1;
    if (run.options.json) return printJson(items.items), 0;
    if (accountOnly(items.count, "notes")) return 0;
    for (const auto& note : items.items.GetArray())
        printf("%s  %-19s  %s\n", text(note, "id").c_str(), text(note, "dateModified").c_str(),
               text(note, "subject").c_str());
    printf("%lld note(s)\n", static_cast<long long>(items.count));
    return 0;
}

}  // namespace

bool isSyncDataVerb(const std::string& verb) { return verb == "calendars" || verb == "bookmarks" || verb == "notes"; }

int runSyncDataVerb(zparent::ParentLink& link, const std::string& verb, const SyncDataOptions& options) {
    const auto& words = options.words;
    const bool action = words.size() > 2 && (words[1] == "add" || words[1] == "remove");
    if (words.size() < 2 || (action && words.size() < 3)) {
        fprintf(stderr, "zebrelo-ctl: usage: %s UDID | %s add UDID ... | %s remove UDID ID\n", verb.c_str(),
                verb.c_str(), verb.c_str());
        return 2;
    }
    const std::string& udid = words[action ? 2 : 1];
    if (zparent::waitForReady(link, udid, std::chrono::seconds(options.timeoutSeconds), options.interrupted).empty()) {
        fprintf(stderr, "zebrelo-ctl: device %s did not become ready\n", udid.c_str());
        return 1;
    }
    Run run{CommandRunner(link, options.timeoutSeconds, options.interrupted, codeText), options};
    if (verb == "calendars") return calendars(run, udid, words);
    if (verb == "bookmarks") return bookmarks(run, udid, words);
    return notes(run, udid, words);
}

}  // namespace zctl
