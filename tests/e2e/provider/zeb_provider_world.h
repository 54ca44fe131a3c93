// What every provider test shares: one simulator, the bound provider, one
// notification subscription whose records are collected from the run-loop
// thread, and a trusted iPhone attached from the start.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "zeb_mobile_export_fun.h"
#include "zeb_sim_process.h"

struct DeviceEvent {
    AMDeviceRef device;
    uint32_t message;
};

class ProviderWorld : public ::testing::Environment {
public:
    static ProviderWorld& Get();

    void SetUp() override;
    void TearDown() override;

    CMobileExportFun& md() { return CMobileExportFun::GetInstance(); }
    SimProcess sim;
    AMDeviceRef trustedIphone = nullptr;  // the iPhone 13 profile

    size_t EventCount();
    std::vector<DeviceEvent> EventsSince(size_t index);
    // The first record with message (and device, when given) at or after
    // index, waiting up to timeoutMs. Null device on time-out.
    DeviceEvent WaitFor(uint32_t message, size_t index, AMDeviceRef device = nullptr, int timeoutMs = 15000);

    // Attaches a profile folder (or a known UDID) through the control
    // channel and waits for its attach record. udid receives its UDID.
    AMDeviceRef Attach(const std::string& target, std::string* udid = nullptr);
    // Detaches through the control channel and waits for the record.
    bool Detach(const std::string& udid, AMDeviceRef device);

    static std::string Profile(const std::string& name);

private:
    static void OnNotification(AMDeviceNotificationInfo* info, void* context);
    std::mutex lock_;
    std::condition_variable arrived_;
    std::vector<DeviceEvent> events_;
    AMDeviceNotificationRef subscription_ = nullptr;
};

// Connect, check the pairing, start a session; undone in reverse.
class DeviceSession {
public:
    explicit DeviceSession(AMDeviceRef device);
    ~DeviceSession();
    bool ok() const { return ok_; }

private:
    AMDeviceRef device_;
    bool connected_ = false;
    bool ok_ = false;
};

// An interned key, as the worker makes them.
CFStringRef Key(const char* text);
// A CF string's UTF-8 text, or "<none>".
std::string TextOf(CFTypeRef value);
