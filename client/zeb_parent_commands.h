// The everyday moves of a parent on a link: wait for a device to be ready,
// run one command to its report, and write the JSON a command carries.
#pragma once

#include "zeb_parent_link.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zparent {

// The UDID of the device once its ready event comes (the first ready one
// when `udid` is empty); empty on time-out, interruption or a closed link.
std::string waitForReady(ParentLink& link, const std::string& udid, std::chrono::seconds timeout,
                         const std::atomic<bool>* interrupted = nullptr);

struct CommandRun {
    uint64_t taskId = 1;
    // The longest silence between two events of the command.
    std::chrono::seconds idleTimeout{30};
    const std::atomic<bool>* interrupted = nullptr;
    // What ends the command; isFinalReport unless a module says otherwise.
    std::function<bool(const Event&)> isReport;
    // When set, an interruption calls it once (to ask the worker for a
    // cancel) and the wait goes on for the report; otherwise the wait ends.
    std::function<void()> onInterrupt;
};

// Sends one command and hands each of its events to `onEvent` until the
// report; the report's code, or -1 on time-out, interruption or a closed
// link.
int64_t runCommand(ParentLink& link, const CommandRun& run, uint32_t command, const std::string& json,
                   const std::optional<std::string>& tail, const std::function<void(const Event&)>& onEvent);

// Asks the worker, under its own task id, to cancel task `taskId` of the
// device (command 600); does not wait for the answer.
bool sendCancel(ParentLink& link, uint64_t cancelTaskId, const std::string& udid, uint64_t taskId);

// {"uuid":"<udid>"}
std::string uuidJson(const std::string& udid);
// A JSON string literal, and an array of them.
std::string jsonString(const std::string& text);
std::string jsonStringArray(const std::vector<std::string>& items);
// {"key":"value",...} in the given order.
std::string jsonStringObject(const std::vector<std::pair<std::string, std::string>>& members);

}  // namespace zparent
