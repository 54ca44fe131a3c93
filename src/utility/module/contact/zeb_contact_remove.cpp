// Commands 103 and 105: one record (a contact, or a group by its full key)
// removed. The device's answer is not looked at: removing what is not there
// is no failure.
#include "zeb_contact_reader.h"
#include "zeb_contact_texts.h"
#include "zeb_module_contact.h"
#include "zeb_sync_service.h"

int64_t ZEBModuleContact::removeRecord(CommandContext& context, const rapidjson::Document& request) {
    auto id = request.FindMember("id");
    if (id == request.MemberEnd() || !id->value.IsString()) return kCodeBadJson;
    ChangeReplyContext reply;
    SyncSession session(nullptr);
    if (!beginChange(context, reply, contact::kRemoveTexts, contact::kChangeWaits, session))
        return kCodeSyncServiceFailed;
    reply.mode = kContactRemoval;
    session.sendChanges(zeb::fillTemplate(contact::kRemoveTemplate, id->value.GetString()), ContactReplyHandler,
                        &reply);
    session.finish(contact::kRemoveTexts);
    return kCodeSuccess;
}
