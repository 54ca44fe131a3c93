// Command 100: every group and every contact of the device.
#include "zeb_contact_reader.h"
#include "zeb_contact_texts.h"
#include "zeb_module_contact.h"
#include "zeb_paged_reply.h"
#include "zeb_sync_service.h"

namespace {

constexpr size_t kRecordsPerChunk = 100;

}  // namespace

int64_t ZEBModuleContact::query(CommandContext& context) {
    ChangeReplyContext reply;
    reply.deviceId = context.device->udid;
    reply.module = this;
    const SyncRecordReader reader(ContactReplyHandler, &reply, &reply.mode, kContactFirstBatch, kContactFurtherBatch,
                                  true);
    const int64_t read = zeb::ReadAllSyncRecords(context, "Contact", contact::kQueryTexts, reader);
    if (read == kCodeSyncServiceFailed) return read;

    zeb::PagedReply groups{context.packet, 101, context.device->udid};
    zeb::sendPagedObject(groups, reply.groups.MemberCount(), reply.groups, kRecordsPerChunk);
    zeb::PagedReply contacts{context.packet, 100, context.device->udid};
    const int64_t count = zeb::syncListCount(*context.device, "Contacts", reply.contacts.MemberCount());
    zeb::sendPagedObject(contacts, count, reply.contacts, kRecordsPerChunk);
    return read;  // a list the device cut off went out as far as it came
}
