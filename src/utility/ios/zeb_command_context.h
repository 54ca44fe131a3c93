// What every command handler runs first, written once: parse the payload,
// find the device, enter the task, check the version, and report the end.
#pragma once

#include "zeb_device.h"
#include "zeb_packet.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

struct CommandContext {
    IPCPacket1* packet = nullptr;
    int version = 0;
    rapidjson::Document json;
    std::string uuid;
    int64_t code = 0;
    DevicePtr device;     // set when the rules ask for a device
    DhTask* task = nullptr;  // set for long tasks
    const unsigned char* tail = nullptr;
    size_t tailLength = 0;
    // What the command still holds when it has answered (a started service):
    // released after the final report, so the parent is not kept waiting
    // while the device link winds down.
    std::shared_ptr<void> heldThroughReport;

    // Inflates the tail and parses it as JSON; false means result 8.
    bool readTail(rapidjson::Document& out) const;
    // The inflated tail as text; false when it doesn't inflate.
    bool tailText(std::string& out) const;
    // `info` of the command's JSON, or null.
    const rapidjson::Value* info() const;
};

struct DispatchRules {
    bool needsDevice = true;
    // Basic information also takes "code" as a device handle.
    bool findByHandleToo = false;
    // Long commands live in the device's task table and honour a cancel
    // that came before them.
    bool longTask = false;
    // The file module answers a bad envelope with no report at all.
    bool silentParseFailure = false;
    // The erase commands say nothing at all about a device they cannot find.
    bool silentWithoutDevice = false;
    // Control acts whatever the payload's version says.
    bool anyVersion = false;
    // Commands that build large replies hand the memory back to the system
    // when they end: pool threads keep separate heaps, and each would
    // otherwise keep the peak of whatever list it last built.
    bool releaseMemoryAfter = false;
};

// An operation's result: a code for the final report, or this when the
// operation has answered for itself.
inline constexpr int64_t kAlreadyReported = INT64_MIN;

enum CommonCode : int64_t {
    kCodeSuccess = 0,
    kCodeConversationBroke = 2,
    kCodeCancelled = 6,
    kCodeNoDevice = 7,
    kCodeNoProvider = 9,  // as the monitor reports a provider it cannot bind
    kCodeBadTail = 8,
    kCodeServiceFailed = 12,
    kCodeBadJson = 21,
};

namespace zeb {

// Splits a payload into version, JSON text and tail; false when the payload
// has no JSON text.
bool splitPayload(const IPCPacket1* packet, int& version, std::string& json, const unsigned char*& tail,
                  size_t& tailLength);

}  // namespace zeb
