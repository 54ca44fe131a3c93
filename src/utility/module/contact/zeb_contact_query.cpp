// Command 100: every group and every contact of the device.
#include "zeb_contact_reader.h"
#include "zeb_contact_texts.h"
#include "zeb_module_contact.h"
#include "zeb_paged_reply.h"
#include "zeb_sync_service.h"

#include <glog/logging.h>

namespace {

constexpr size_t kRecordsPerChunk = 100;

}  // namespace

int64_t ZEBModuleContact::query(CommandContext& context) {
    ServicePtr service = zeb::StartSyncService(context);
    if (!service) return kCodeSyncServiceFailed;
    LOG(INFO) << __FILE__ << " Contact querylist pInstallServer: " << static_cast<void*>(service->connection);

    ChangeReplyContext reply;
    reply.deviceId = context.device->udid;
    reply.module = this;
    SyncSession session(service->connection);
    session.open(contact::kQueryTexts, nullptr);
    SyncRecordReader reader;
    reader.handler = ContactReplyHandler;
    reader.context = &reply;
    reader.mode = &reply.mode;
    reader.firstBatchMode = kContactFirstBatch;
    reader.furtherBatchMode = kContactFurtherBatch;
    session.readAll(contact::kQueryTexts, reader);

    zeb::PagedReply groups{context.packet, 101, context.device->udid};
    zeb::sendPagedObject(groups, reply.groups.MemberCount(), reply.groups, kRecordsPerChunk);
    zeb::PagedReply contacts{context.packet, 100, context.device->udid};
    const int64_t count = zeb::syncListCount(*context.device, "Contacts", reply.contacts.MemberCount());
    zeb::sendPagedObject(contacts, count, reply.contacts, kRecordsPerChunk);
    return kCodeSuccess;
}
