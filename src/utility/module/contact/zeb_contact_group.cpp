// Commands 104 and 106: a group added, or renamed and given its members.
// The name and members are put into the parsed change text, so whatever
// they hold reaches the device escaped.
#include "zeb_contact_reader.h"
#include "zeb_contact_texts.h"
#include "zeb_module_contact.h"
#include "zeb_paged_reply.h"
#include "zeb_sync_service.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <vector>

namespace {

bool readText(const rapidjson::Document& request, const char* key, std::string& out) {
    auto found = request.FindMember(key);
    if (found == request.MemberEnd() || !found->value.IsString()) return false;
    out.assign(found->value.GetString(), found->value.GetStringLength());
    return true;
}

// {"<key>": [device id, name]}
std::string groupReply(const std::string& key, const std::string& deviceId, const std::string& name) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key(key.c_str(), static_cast<rapidjson::SizeType>(key.size()));
    writer.StartArray();
    writer.String(deviceId.c_str(), static_cast<rapidjson::SizeType>(deviceId.size()));
    writer.String(name.c_str(), static_cast<rapidjson::SizeType>(name.size()));
    writer.EndArray();
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace

int64_t ZEBModuleContact::changeGroup(CommandContext& context, const rapidjson::Document& request) {
    const bool isChange = context.packet->commandType == 106;
    std::string id, name, guid;
    if (!readText(request, "id", id) || !readText(request, "name", name)) return kCodeBadJson;
    if (isChange && !readText(request, "guid", guid)) return kCodeBadJson;
    std::vector<std::string> members;
    if (isChange) {
        auto list = request.FindMember("members");
        if (list != request.MemberEnd() && list->value.IsArray())
            for (const auto& member : list->value.GetArray())
                if (member.IsString()) members.emplace_back(member.GetString(), member.GetStringLength());
    }

    zeb::SyncRecordEdit edit(zeb::fillTemplate(contact::kGroupTemplate, id));
    edit.addString("name", name);
    if (isChange) edit.addStringArray("members", members);

    ChangeReplyContext reply;
    reply.groupKey = "Group/" + (isChange ? guid : id);
    SyncSession session(nullptr);
    if (!beginChange(context, reply, contact::kGroupTexts, contact::kChangeWaits, session))
        return kCodeSyncServiceFailed;
    reply.mode = kContactGroupChange;
    session.sendChanges(edit.print(), ContactReplyHandler, &reply);
    session.finish(contact::kGroupTexts);
    if (reply.newGroupId.empty()) return kCodeNoGroupId;

    const std::string tail = groupReply(isChange ? guid : id, reply.newGroupId, name);
    zeb::sendReplyEvent(zeb::PagedReply{context.packet, context.packet->commandType, context.device->udid}, 0,
                        nullptr, &tail);
    return kCodeSuccess;
}
