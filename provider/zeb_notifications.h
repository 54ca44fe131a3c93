// Device notifications: usbmuxd events become (handle, message) records that
// run on the CFRunLoopRun thread, in order.
#pragma once

#include <memory>

#include "zeb_device_registry.h"

namespace zebprov {

// Delivers message for device to every active subscription.
void PostDeviceMessage(const std::shared_ptr<Device>& device, uint32_t message);

}  // namespace zebprov
