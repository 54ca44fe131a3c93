// The service every sync module talks to, and the count its lists carry.
#pragma once

#include "zeb_device.h"

#include <cstddef>
#include <cstdint>

inline constexpr int64_t kCodeSyncServiceFailed = 13;

namespace zeb {

// "com.apple.mobilesync" on the device, or null.
ServicePtr StartSyncService(const ZEBDevice& device);

// The count a list of the class goes out with: the number of records, or
// -1 when there are none and the device keeps the class in an account (the
// parent then tells the user the data lives in the cloud).
int64_t syncListCount(const ZEBDevice& device, const char* accountName, size_t records);

}  // namespace zeb
