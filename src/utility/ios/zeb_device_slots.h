// A cache of shared device objects with one slot per device, each with a
// lock of its own: a device that pairs, starts a service or answers slowly
// holds up only its own callers, never another device's.
#pragma once

#include "zeb_device.h"

#include <map>
#include <memory>
#include <mutex>

namespace zeb {

template <typename Shared>
struct DeviceSlot {
    std::mutex lock;  // held while the entry is looked up or made
    std::weak_ptr<Shared> entry;
};

template <typename Shared>
class DeviceSlots {
public:
    std::shared_ptr<DeviceSlot<Shared>> slotOf(DeviceHandle handle) {
        std::lock_guard<std::mutex> hold(lock_);
        auto& slot = slots_[handle];
        if (!slot) slot = std::make_shared<DeviceSlot<Shared>>();
        return slot;
    }
    void forget(DeviceHandle handle) {
        std::lock_guard<std::mutex> hold(lock_);
        slots_.erase(handle);
    }

private:
    std::mutex lock_;  // the map only, never across a device call
    std::map<DeviceHandle, std::shared_ptr<DeviceSlot<Shared>>> slots_;
};

}  // namespace zeb
