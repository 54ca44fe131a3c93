// Command 501 and CopyInstalledApps: Browse conversations with the
// installation proxy.
#include "zeb_app_messages.h"
#include "zeb_app_reply.h"
#include "zeb_module_app.h"
#include "zeb_sync_frames.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>

namespace {

const char kInstallationProxy[] = "com.apple.mobile.installation_proxy";
constexpr size_t kAppsPerEvent = 10;

void exchange(AMDServiceConnectionRef connection, zeb::AppMessage kind, AppReplyContext& reply) {
    SyncMessage* message = zeb::encodeAppMessage(kind);
    if (!message) return;
    SyncExchange(connection, message, AppReplyHandler, &reply);
    FreeSyncMessage(message);
}

void sendListEvent(const CommandContext& context, int32_t stage, const std::string& info, const std::string* tail) {
    EventEnvelope envelope;
    envelope.stage = stage;
    envelope.uuid = context.device->udid.c_str();
    envelope.info = info.c_str();
    if (tail) {
        envelope.tail = tail->data();
        envelope.tailLength = tail->size();
    }
    IPCPacket1 frame{};
    frame.taskId = context.packet->taskId;
    frame.commandType = 501;
    frame.packetStatus = 2;
    zeb::sendAppEvent(envelope, &frame);
}

}  // namespace

int64_t ZEBModuleApp::listApps(CommandContext& context) {
    int32_t error = 0;
    ServicePtr proxy = zeb::StartService(context.device->handle, error, kInstallationProxy, nullptr, false);
    if (!proxy) return kCodeAppServiceFailed;
    AppReplyContext reply;
    reply.module = this;
    reply.udid = context.device->udid;
    reply.command = context.packet;
    reply.mode = kAppBrowseAttributes;
    exchange(proxy->connection, zeb::AppMessage::BrowseAttributes, reply);
    reply.mode = kAppBrowseDiskUsage;
    exchange(proxy->connection, zeb::AppMessage::BrowseDiskUsage, reply);

    const std::string head = "{\"Count\":" + std::to_string(reply.apps.MemberCount()) + "}";
    sendListEvent(context, 0, head, nullptr);
    // Groups of ten keep one event's size bounded.
    auto member = reply.apps.MemberBegin();
    while (member != reply.apps.MemberEnd()) {
        rapidjson::StringBuffer group;
        rapidjson::Writer<rapidjson::StringBuffer> writer(group);
        writer.StartObject();
        for (size_t n = 0; n < kAppsPerEvent && member != reply.apps.MemberEnd(); ++n, ++member) {
            writer.Key(member->name.GetString(), member->name.GetStringLength());
            member->value.Accept(writer);
        }
        writer.EndObject();
        std::string tail(group.GetString(), group.GetSize());
        sendListEvent(context, 1, head, &tail);
    }
    return kCodeSuccess;
}

namespace zeb {

bool CopyInstalledApps(ZEBModuleApp* module, ZEBDevice& device, std::vector<CFTypeRef>& out) {
    int32_t error = 0;
    ServicePtr proxy = StartService(device.handle, error, kInstallationProxy, nullptr, false);
    if (!proxy) return false;
    AppReplyContext reply;
    reply.module = module;
    reply.udid = device.udid;
    reply.mode = kAppBrowseToCf;
    reply.apps_out = &out;
    exchange(proxy->connection, AppMessage::BrowseAttributes, reply);
    return true;
}

}  // namespace zeb
