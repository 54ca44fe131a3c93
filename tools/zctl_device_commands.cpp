#include "zctl_device_commands.h"

#include "zeb_json_parse.h"

#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>

using namespace std::chrono_literals;
using zparent::Event;

namespace zctl {

namespace {

// Device events as the parent reads them.
enum : uint32_t { kReady = 1, kGone = 8, kArrived = 11, kPairingFailed = 12 };

const char* codeText(int64_t code) {
    switch (code) {
        case 0: return "ok";
        case 3: return "device software too old";
        case 6: return "cancelled";
        case 7: return "no such device";
        case 8: return "bad JSON in the command's tail";
        case 12: return "a device service did not start";
        case 21: return "bad JSON in the command";
        case 24: return "no connection to the device";
        case 25: return "the device asks the user to trust this computer";
        case 26: return "pairing could not be validated";
        case 27: return "no session with the device";
        case 31: return "the device refused the change";
        default: return "error";
    }
}

std::string describeDevice(const Event& event) {
    rapidjson::Document info;
    zeb::parseJson(info, event.info.c_str());
    if (!info.IsObject()) return event.uuid;
    auto text = [&](const char* key) { return info.HasMember(key) && info[key].IsString() ? info[key].GetString() : ""; };
    char line[512];
    snprintf(line, sizeof line, "%s  %s %s, iOS %s, serial %s", event.uuid.c_str(), text("Type"), text("Model"),
             text("FirmVersion"), text("SerialNumber"));
    return line;
}

class Session {
public:
    Session(zparent::ParentLink& link, const DeviceOptions& options) : link(link), options(options) {}

    // Waits for a ready device (the given UDID, or any); its event.
    std::optional<Event> waitReady(const std::string& udid) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(options.timeoutSeconds);
        while (!*options.interrupted && std::chrono::steady_clock::now() < deadline) {
            auto event = link.nextEvent(250ms);
            if (!event) {
                if (link.closed()) return std::nullopt;
                continue;
            }
            if (event->frame.taskId != 0) continue;
            if (event->frame.commandType == kReady && (udid.empty() || event->uuid == udid)) return event;
            if (event->frame.commandType == kPairingFailed)
                fprintf(stderr, "zebrelo-ctl: %s: %s\n", event->uuid.empty() ? "a device" : event->uuid.c_str(),
                        codeText(atoll(event->info.substr(1).c_str())));
        }
        return std::nullopt;
    }

    // Sends a command and gathers its events up to the final report.
    std::vector<Event> run(uint32_t number, const std::string& json, const std::optional<std::string>& tail = std::nullopt) {
        const uint64_t taskId = ++lastTask;
        if (!link.sendCommand(taskId, number, json, tail)) return {};
        std::vector<Event> events;
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(options.timeoutSeconds);
        while (!*options.interrupted && std::chrono::steady_clock::now() < deadline) {
            auto event = link.nextEvent(250ms);
            if (!event) {
                if (link.closed()) break;
                continue;
            }
            if (event->frame.taskId != taskId) continue;
            events.push_back(*event);
            if (zparent::isFinalReport(*event)) return events;
        }
        return {};
    }

    zparent::ParentLink& link;
    const DeviceOptions& options;
    uint64_t lastTask = 0;
};

std::string jsonText(const std::string& raw) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.String(raw.c_str(), static_cast<rapidjson::SizeType>(raw.size()));
    return buffer.GetString();
}

std::string command(const std::string& udid, int64_t code = 0) {
    return "{\"uuid\":" + jsonText(udid) + ",\"code\":" + std::to_string(code) + "}";
}

int finish(const std::vector<Event>& events, const char* what) {
    if (events.empty()) {
        fprintf(stderr, "zebrelo-ctl: %s: no answer within the time-out\n", what);
        return 3;
    }
    int64_t code = events.back().code;
    if (code != 0) fprintf(stderr, "zebrelo-ctl: %s failed: %s (%lld)\n", what, codeText(code), static_cast<long long>(code));
    return code == 0 ? 0 : 1;
}

void printTable(const char* title, const std::string& json) {
    rapidjson::Document object;
    zeb::parseJson(object, json.c_str());
    if (!object.IsObject()) return;
    printf("%s\n", title);
    for (auto& member : object.GetObject()) {
        std::string value;
        if (member.value.IsString()) {
            value = member.value.GetString();
        } else {
            rapidjson::StringBuffer buffer;
            rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
            member.value.Accept(writer);
            value = buffer.GetString();
        }
        printf("  %-38s %s\n", member.name.GetString(), value.c_str());
    }
}

int devices(Session& session) {
    while (!*session.options.interrupted) {
        auto event = session.link.nextEvent(500ms);
        if (!event) {
            if (session.link.closed()) return 1;
            continue;
        }
        if (event->frame.taskId != 0) continue;
        switch (event->frame.commandType) {
            case kArrived: printf("arrived  device %lld\n", static_cast<long long>(event->code)); break;
            case kReady: printf("ready    %s\n", describeDevice(*event).c_str()); break;
            case kPairingFailed:
                printf("waiting  device %lld %s: %s\n", static_cast<long long>(event->code), event->uuid.c_str(),
                       codeText(atoll(event->info.substr(1).c_str())));
                break;
            case kGone:
                printf("gone     %s\n", event->uuid.empty() ? std::to_string(event->code).c_str() : event->uuid.c_str());
                break;
            default: printf("status   %u (code %lld)\n", event->frame.commandType, static_cast<long long>(event->code));
        }
        fflush(stdout);
    }
    return 0;
}

int info(Session& session, const std::string& udid) {
    auto ready = session.waitReady(udid);
    if (!ready) {
        fprintf(stderr, "zebrelo-ctl: no device %s became ready\n", udid.empty() ? "" : udid.c_str());
        return 1;
    }
    auto events = session.run(300, command(ready->uuid));
    if (events.size() >= 3) {
        if (session.options.json) {
            printf("%s\n%s\n", events[0].tail.c_str(), events[1].tail.c_str());
        } else {
            printTable("Device", events[0].tail);
            printTable("Storage", events[1].tail);
        }
    }
    return finish(events, "info");
}

}  // namespace

bool isDeviceVerb(const std::string& verb) {
    return verb == "devices" || verb == "info" || verb == "rename" || verb == "cancel";
}

int runDeviceVerb(zparent::ParentLink& link, const std::string& verb, const DeviceOptions& options) {
    Session session(link, options);
    const auto& words = options.words;
    if (verb == "devices") return devices(session);
    if (verb == "info") return info(session, words.size() > 1 ? words[1] : "");
    if (words.size() < 3) {
        fprintf(stderr, "zebrelo-ctl: %s needs UDID and %s\n", verb.c_str(), verb == "rename" ? "NAME" : "TASKID");
        return 2;
    }
    if (!session.waitReady(words[1])) {
        fprintf(stderr, "zebrelo-ctl: the device %s did not become ready\n", words[1].c_str());
        return 1;
    }
    if (verb == "rename")
        return finish(session.run(303, command(words[1]), "{\"name\":" + jsonText(words[2]) + "}"), "rename");
    return finish(session.run(600, command(words[1], atoll(words[2].c_str()))), "cancel");
}

}  // namespace zctl
