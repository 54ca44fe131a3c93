// The provider's devices and the opaque handles that stand for them.
#pragma once

#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "zeb_mobile_device_api.h"

namespace zebprov {

struct Device {
    AMDeviceRef handle = nullptr;
    std::string udid;
    uint32_t muxHandle = 0;
    bool network = false;
    // Set once usbmuxd reports the device gone; every later operation fails.
    std::atomic<bool> gone{false};
    // Serialises the lockdown conversation and guards the fields below.
    std::mutex lock;
    idevice_t idevice = nullptr;
    lockdownd_client_t lockdown = nullptr;
    int connectCount = 0;  // AMDeviceConnect calls not yet disconnected
    int sessionCount = 0;  // AMDeviceStartSession calls not yet stopped
    std::string sessionId;
    std::atomic<bool> trustWatchRunning{false};
};

// The device usbmuxd knows under muxHandle: the live one if it is still
// attached, otherwise a new record with a fresh handle.
std::shared_ptr<Device> AttachDevice(uint32_t muxHandle, const std::string& udid, bool network);

// Marks the live device of muxHandle as gone and returns it (null if none).
std::shared_ptr<Device> DetachDevice(uint32_t muxHandle);

// The record behind a handle; records outlive their device so that late
// calls fail cleanly instead of touching freed memory.
std::shared_ptr<Device> FindDevice(AMDeviceRef handle);

// A new libimobiledevice handle for the device (null if it can't be made).
idevice_t OpenIdevice(const Device& device);

}  // namespace zebprov
