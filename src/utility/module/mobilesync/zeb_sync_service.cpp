#include "zeb_sync_service.h"

#include <glog/logging.h>

namespace zeb {

ServicePtr StartSyncService(CommandContext& context) {
    int32_t error = 0;
    ServicePtr service = StartService(context.device->handle, error, "com.apple.mobilesync", nullptr, false);
    context.heldThroughReport = service;
    return service;
}

int64_t ReadAllSyncRecords(CommandContext& context, const char* label, const SyncTexts& texts,
                           const SyncRecordReader& reader) {
    ServicePtr service = StartSyncService(context);
    if (!service) return kCodeSyncServiceFailed;
    LOG(INFO) << __FILE__ << " " << label << " querylist pInstallServer: " << static_cast<void*>(service->connection);
    SyncSession session(service->connection);
    session.open(texts, nullptr);
    return session.readAll(texts, reader) ? kCodeSuccess : kCodeConversationBroke;
}

bool BeginSyncChange(CommandContext& context, const SyncTexts& texts, const SyncWriteWaits& waits,
                     SyncSession& session) {
    ServicePtr service = StartSyncService(context);
    if (!service) return false;
    session = SyncSession(service->connection);
    session.open(texts, waits.afterStart);
    session.prepareChanges(texts, waits);
    return true;
}

int64_t syncListCount(const ZEBDevice& device, const char* accountName, size_t records) {
    if (records == 0 && HasSyncAccount(device.handle, accountName)) return -1;
    return static_cast<int64_t>(records);
}

}  // namespace zeb
