#include "zeb_module_contact.h"

#include "zeb_contact_reader.h"
#include "zeb_sync_service.h"

int ZEBModuleContact::execute(IPCPacket1* packet) {
    DispatchRules rules;
    rules.silentParseFailure = true;
    rules.releaseMemoryAfter = packet->commandType == 100;
    dispatch(packet, rules, [this](CommandContext& context) -> int64_t {
        const uint32_t command = context.packet->commandType;
        if (command == 100) return query(context);
        if (command < 102 || command > 106) return kCodeSuccess;
        rapidjson::Document request;
        if (!context.readTail(request)) return kCodeBadTail;
        if (!request.IsObject()) return kCodeBadJson;
        switch (command) {
            case 102: return addContact(context, request);
            case 103:
            case 105: return removeRecord(context, request);
            default: return changeGroup(context, request);
        }
    });
    return 0;
}

bool ZEBModuleContact::beginChange(CommandContext& context, ChangeReplyContext& reply, const SyncTexts& texts,
                                   const SyncWriteWaits& waits, SyncSession& session) {
    reply.deviceId = context.device->udid;
    reply.module = this;
    return zeb::BeginSyncChange(context, texts, waits, session);
}
