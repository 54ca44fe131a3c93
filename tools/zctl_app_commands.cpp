#include "zctl_app_commands.h"
#include "zctl_text.h"
#include "zeb_json_parse.h"
#include "zeb_parent_commands.h"

#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>

using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace zctl {

namespace {

std::string waitReady(zparent::ParentLink& link, const std::string& udid, const AppOptions& options) {
    std::string ready = zparent::waitForReady(link, udid, std::chrono::seconds(options.timeoutSeconds), options.interrupted);
    if (ready.empty()) fprintf(stderr, "zebrelo-ctl: %s did not become ready\n", udid.empty() ? "no device" : udid.c_str());
    return ready;
}

// Installs can take long, so the time-out counts from the last event.
int64_t runCommand(zparent::ParentLink& link, uint32_t command, const std::string& udid,
                   const std::optional<std::string>& tail, const AppOptions& options,
                   const std::function<void(const zparent::Event&)>& onEvent) {
    zparent::CommandRun run;
    run.idleTimeout = std::chrono::seconds(options.timeoutSeconds);
    run.interrupted = options.interrupted;
    run.isReport = isAppReport;
    int64_t code = zparent::runCommand(link, run, command, zparent::uuidJson(udid), tail, onEvent);
    if (code == -1) fprintf(stderr, "zebrelo-ctl: command %u got no report\n", command);
    return code;
}

std::string member(const rapidjson::Value& app, const char* name) {
    auto found = app.FindMember(name);
    return found != app.MemberEnd() && found->value.IsString() ? found->value.GetString() : "";
}

int64_t number(const rapidjson::Value& app, const char* name) {
    auto found = app.FindMember(name);
    return found != app.MemberEnd() && found->value.IsInt64() ? found->value.GetInt64() : -1;
}

int listApps(zparent::ParentLink& link, const std::string& udid, const AppOptions& options) {
    rapidjson::Document all;
    all.SetObject();
    int64_t code = runCommand(link, 501, udid, std::nullopt, options, [&](const zparent::Event& event) {
        if (event.stage != 1) return;
        rapidjson::Document group;
        zeb::parseJson(group, event.tail.c_str(), event.tail.size());
        if (!group.IsObject()) return;
        for (auto& app : group.GetObject())
            all.AddMember(rapidjson::Value(app.name, all.GetAllocator()), rapidjson::Value(app.value, all.GetAllocator()),
                          all.GetAllocator());
    });
    if (code != 0) {
        fprintf(stderr, "zebrelo-ctl: listing failed with code %lld\n", static_cast<long long>(code));
        return 1;
    }
    if (options.json) {
        rapidjson::StringBuffer buffer;
        rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
        all.Accept(writer);
        printf("%s\n", buffer.GetString());
        return 0;
    }
    printf("%-40s %-28s %-16s %10s %10s\n", "IDENTIFIER", "NAME", "VERSION", "APP", "DATA");
    for (const auto& app : all.GetObject()) {
        std::string name = member(app.value, "CFBundleDisplayName");
        if (name.empty()) name = member(app.value, "CFBundleName");
        std::string version = member(app.value, "CFBundleShortVersionString");
        if (version.empty()) version = member(app.value, "CFBundleVersion");
        int64_t appSize = number(app.value, "app-size"), dataSize = number(app.value, "data-size");
        printf("%-40s %-28s %-16s %10s %10s\n", app.name.GetString(), name.c_str(), version.c_str(),
               appSize < 0 ? "-" : sizeText(static_cast<double>(appSize)).c_str(), dataSize < 0 ? "-" : sizeText(static_cast<double>(dataSize)).c_str());
    }
    printf("%u apps\n", all.MemberCount());
    return 0;
}

// A file name for an identifier: separators and dots-only names are changed.
std::string iconFileName(const std::string& id) {
    std::string name = id;
    for (char& c : name)
        if (c == '/' || c == '\\' || static_cast<unsigned char>(c) < 0x20) c = '_';
    if (name.empty() || name == "." || name == "..") name = "_" + name;
    return name + ".png";
}

int fetchIcons(zparent::ParentLink& link, const std::string& udid, const std::vector<std::string>& ids,
               const fs::path& out, const AppOptions& options) {
    std::error_code error;
    fs::create_directories(out, error);
    size_t written = 0;
    int64_t code = runCommand(link, 502, udid, zparent::jsonStringArray(ids), options, [&](const zparent::Event& event) {
        rapidjson::Document info;
        zeb::parseJson(info, event.info.c_str());
        if (event.type != 1 || !info.IsObject() || !info.HasMember("bundle_id") || !info["bundle_id"].IsString()) return;
        const fs::path file = out / iconFileName(info["bundle_id"].GetString());
        std::ofstream(file, std::ios::binary) << event.tail;
        printf("%s  %s\n", file.c_str(), sizeText(static_cast<double>(event.tail.size())).c_str());
        ++written;
    });
    if (written < ids.size()) fprintf(stderr, "zebrelo-ctl: %zu of %zu icons not found\n", ids.size() - written, ids.size());
    return code == 0 && written == ids.size() ? 0 : 1;
}

void drawPercent(const std::string& label, int64_t percent) {
    if (!isatty(STDERR_FILENO)) return;
    std::string bar(30, ' ');
    for (int64_t i = 0; i < percent * 30 / 100 && i < 30; ++i) bar[i] = '#';
    fprintf(stderr, "\r%-36.36s [%s] %3lld%% ", label.c_str(), bar.c_str(), static_cast<long long>(percent));
}

int installPackages(zparent::ParentLink& link, const std::string& udid, const std::vector<std::string>& files,
                    const AppOptions& options) {
    std::vector<std::string> paths;
    for (const auto& file : files) {
        std::error_code error;
        fs::path absolute = fs::absolute(file, error);
        paths.push_back(error ? file : absolute.string());
    }
    std::string current;
    bool started = false;
    int installed = 0, failed = 0;
    int64_t code = runCommand(link, 504, udid, zparent::jsonStringArray(paths), options, [&](const zparent::Event& event) {
        if (event.stage == 0 && event.type == 0) {
            rapidjson::Document metadata;
            zeb::parseJson(metadata, event.tail.c_str(), event.tail.size());
            if (!metadata.IsObject()) return;
            current = member(metadata, "CFBundleIdentifier");
            started = false;
            fprintf(stderr, "installing %s (%s %s)\n", current.c_str(), member(metadata, "CFBundleDisplayName").c_str(),
                    member(metadata, "CFBundleShortVersionString").c_str());
        } else if (event.stage == 2) {
            // The first steps may say 0%; only a 0 after real progress is the end.
            const bool refused = event.frame.packetStatus == 6;
            if (!refused && (event.code > 0 || !started)) {
                started = started || event.code > 0;
                drawPercent(current, event.code);
                return;
            }
            if (!refused) drawPercent(current, 100);
            if (isatty(STDERR_FILENO)) fprintf(stderr, "\n");
            printf("%s: %s\n", current.c_str(), refused ? "refused by the device" : "installed");
            ++(refused ? failed : installed);
            started = false;
        }
    });
    const int skipped = static_cast<int>(paths.size()) - installed - failed;
    if (skipped > 0) fprintf(stderr, "zebrelo-ctl: %d package(s) unreadable or without store metadata\n", skipped);
    return code == 0 && failed == 0 && skipped == 0 ? 0 : 1;
}

// Uninstall and archive: one progress line per app; an app ends at a step
// without a percent (code 0 after progress, or packetStatus 6).
int changeApps(zparent::ParentLink& link, uint32_t command, const std::string& udid,
               const std::vector<std::string>& ids, const AppOptions& options) {
    size_t index = 0;
    bool started = false;
    int failed = 0;
    const char* done = command == 505 ? "uninstalled" : "archived";
    int64_t code = runCommand(link, command, udid, zparent::jsonStringArray(ids), options, [&](const zparent::Event& event) {
        if (index >= ids.size()) return;
        const bool refused = event.frame.packetStatus == 6;
        if (!refused && (event.code > 0 || !started)) {
            started = started || event.code > 0;
            drawPercent(ids[index], event.code);
            return;
        }
        if (isatty(STDERR_FILENO)) fprintf(stderr, "\n");
        printf("%s: %s\n", ids[index].c_str(), refused ? "refused by the device" : done);
        failed += refused ? 1 : 0;
        ++index;
        started = false;
    });
    return code == 0 && failed == 0 ? 0 : 1;
}

}  // namespace

bool isAppReport(const zparent::Event& event) {
    if (event.stage != 0) return false;
    const uint16_t status = event.frame.packetStatus;
    return status == 1 || status == 5 || (status == 6 && event.code != 0);
}

bool isAppVerb(const std::string& verb) {
    return verb == "apps" || verb == "icons" || verb == "install" || verb == "uninstall" || verb == "archive";
}

int runAppVerb(zparent::ParentLink& link, const std::string& verb, const AppOptions& options) {
    std::vector<std::string> plain;
    std::string out = ".";
    for (size_t i = 1; i < options.words.size(); ++i) {
        if (options.words[i] == "--out" && i + 1 < options.words.size())
            out = options.words[++i];
        else
            plain.push_back(options.words[i]);
    }
    if (verb != "apps" && plain.size() < 2) {
        fprintf(stderr, "zebrelo-ctl: %s needs a UDID and at least one %s\n", verb.c_str(),
                verb == "install" ? "package" : "identifier");
        return 2;
    }
    const std::string udid = waitReady(link, plain.empty() ? std::string() : plain[0], options);
    if (udid.empty()) return 1;
    const std::vector<std::string> items(plain.size() > 1 ? plain.begin() + 1 : plain.end(), plain.end());
    if (verb == "apps") return listApps(link, udid, options);
    if (verb == "icons") return fetchIcons(link, udid, items, out, options);
    if (verb == "install") return installPackages(link, udid, items, options);
    return changeApps(link, verb == "uninstall" ? 505 : 506, udid, items, options);
}

}  // namespace zctl
