// Command 102: one new contact and its children, from change texts the
// parent wrote. The device answers each with the ids it gave; children are
// sent with the contact's proposed id replaced by the device's.
#include "zeb_contact_reader.h"
#include "zeb_contact_texts.h"
#include "zeb_module_contact.h"
#include "zeb_paged_reply.h"
#include "zeb_sync_service.h"

#include <vector>

namespace {

std::string memberText(const rapidjson::Document& request, const char* key) {
    auto found = request.FindMember(key);
    if (found == request.MemberEnd() || !found->value.IsString()) return {};
    return std::string(found->value.GetString(), found->value.GetStringLength());
}

std::string idMapReply(const ChangeReplyContext& reply) {
    std::vector<std::pair<const char*, const zeb::SyncIdMap*>> entities;
    for (size_t entity = 0; entity < kContactEntityCount; ++entity)
        entities.emplace_back(kContactEntities[entity], &reply.idMaps[entity]);
    return zeb::idMapReplyText(entities);
}

}  // namespace

int64_t ZEBModuleContact::addContact(CommandContext& context, const rapidjson::Document& request) {
    ChangeReplyContext reply;
    SyncSession session(nullptr);
    if (!beginChange(context, reply, contact::kAddTexts, contact::kAddWaits, session)) return kCodeSyncServiceFailed;

    reply.mode = kContactEntityIds;
    session.sendChanges(memberText(request, kContactEntities[0]), ContactReplyHandler, &reply);
    if (reply.idMaps[0].empty()) return kCodeNoContactId;

    const auto& [proposedId, deviceId] = *reply.idMaps[0].begin();
    for (size_t entity = 1; entity < kContactEntityCount; ++entity) {
        if (!request.HasMember(kContactEntities[entity])) continue;
        const std::string text = zeb::replaceProposedId(memberText(request, kContactEntities[entity]), proposedId, deviceId);
        reply.mode = kContactEntityIds + static_cast<int32_t>(entity);
        session.sendChanges(text, ContactReplyHandler, &reply);
    }
    session.finish(contact::kAddTexts);

    const std::string tail = idMapReply(reply);
    zeb::sendReplyEvent(zeb::PagedReply{context.packet, context.packet->commandType, context.device->udid}, 0,
                        nullptr, &tail);
    return kCodeSuccess;
}
