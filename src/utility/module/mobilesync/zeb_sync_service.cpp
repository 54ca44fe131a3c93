#include "zeb_sync_service.h"

namespace zeb {

ServicePtr StartSyncService(const ZEBDevice& device) {
    int32_t error = 0;
    return StartService(device.handle, error, "com.apple.mobilesync", nullptr, false);
}

int64_t syncListCount(const ZEBDevice& device, const char* accountName, size_t records) {
    if (records == 0 && HasSyncAccount(device.handle, accountName)) return -1;
    return static_cast<int64_t>(records);
}

}  // namespace zeb
