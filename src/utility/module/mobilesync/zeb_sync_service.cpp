#include "zeb_sync_service.h"

namespace zeb {

ServicePtr StartSyncService(CommandContext& context) {
    int32_t error = 0;
    ServicePtr service = StartService(context.device->handle, error, "com.apple.mobilesync", nullptr, false);
    context.heldThroughReport = service;
    return service;
}

int64_t syncListCount(const ZEBDevice& device, const char* accountName, size_t records) {
    if (records == 0 && HasSyncAccount(device.handle, accountName)) return -1;
    return static_cast<int64_t>(records);
}

}  // namespace zeb
