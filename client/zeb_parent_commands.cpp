#include "zeb_parent_commands.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace zparent {

namespace {

using Clock = std::chrono::steady_clock;
constexpr uint32_t kDeviceReady = 1;
constexpr std::chrono::milliseconds kPoll{250};

bool stopped(const std::atomic<bool>* interrupted) { return interrupted && *interrupted; }

}  // namespace

std::string waitForReady(ParentLink& link, const std::string& udid, std::chrono::seconds timeout,
                         const std::atomic<bool>* interrupted) {
    const auto deadline = Clock::now() + timeout;
    while (!stopped(interrupted) && Clock::now() < deadline) {
        auto event = link.nextEvent(kPoll);
        if (!event) {
            if (link.closed()) break;
            continue;
        }
        if (event->frame.taskId == 0 && event->frame.commandType == kDeviceReady &&
            (udid.empty() || event->uuid == udid))
            return event->uuid;
    }
    return {};
}

int64_t runCommand(ParentLink& link, const CommandRun& run, uint32_t command, const std::string& json,
                   const std::optional<std::string>& tail, const std::function<void(const Event&)>& onEvent) {
    if (!link.sendCommand(run.taskId, command, json, tail)) return -1;
    auto deadline = Clock::now() + run.idleTimeout;
    bool cancelAsked = false;
    while (Clock::now() < deadline) {
        if (stopped(run.interrupted)) {
            if (!run.onInterrupt) break;
            if (!cancelAsked) run.onInterrupt();
            cancelAsked = true;
        }
        auto event = link.nextEvent(kPoll);
        if (!event) {
            if (link.closed()) break;
            continue;
        }
        if (event->frame.taskId != run.taskId) continue;
        deadline = Clock::now() + run.idleTimeout;
        if (run.isReport ? run.isReport(*event) : isFinalReport(*event)) return event->code;
        if (onEvent) onEvent(*event);
    }
    return -1;
}

bool sendCancel(ParentLink& link, uint64_t cancelTaskId, const std::string& udid, uint64_t taskId) {
    const std::string json = "{\"uuid\":" + jsonString(udid) + ",\"code\":" + std::to_string(taskId) + "}";
    return link.sendCommand(cancelTaskId, 600, json);
}

std::string jsonString(const std::string& text) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.String(text.c_str(), static_cast<rapidjson::SizeType>(text.size()));
    return buffer.GetString();
}

std::string jsonStringArray(const std::vector<std::string>& items) {
    std::string text = "[";
    for (size_t i = 0; i < items.size(); ++i) text += (i ? "," : "") + jsonString(items[i]);
    return text + "]";
}

std::string jsonStringObject(const std::vector<std::pair<std::string, std::string>>& members) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    for (const auto& [key, value] : members) {
        writer.Key(key.c_str(), static_cast<rapidjson::SizeType>(key.size()));
        writer.String(value.c_str(), static_cast<rapidjson::SizeType>(value.size()));
    }
    writer.EndObject();
    return buffer.GetString();
}

std::string uuidJson(const std::string& udid) { return "{\"uuid\":" + jsonString(udid) + "}"; }

}  // namespace zparent
