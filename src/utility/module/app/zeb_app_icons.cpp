// Command 502 and CopyAppIcon: getIconPNGData on springboard.
#include "zeb_app_messages.h"
#include "zeb_app_reply.h"
#include "zeb_module_app.h"
#include "zeb_sync_frames.h"
#include "zeb_task_table.h"

namespace {

const char kSpringboard[] = "com.apple.springboardservices";

void askIcon(AMDServiceConnectionRef connection, AppReplyContext& reply) {
    SyncMessage* message = zeb::encodeAppMessage(zeb::AppMessage::GetIcon, reply.bundle_id);
    if (!message) return;  // an identifier that can't be a property list text
    SyncExchange(connection, message, AppReplyHandler, &reply);
    FreeSyncMessage(message);
}

}  // namespace

int64_t ZEBModuleApp::fetchIcons(CommandContext& context) {
    std::vector<std::string> identifiers;
    if (!zeb::tailTexts(context, identifiers)) return kCodeBadTail;
    int32_t error = 0;
    ServicePtr springboard = zeb::StartService(context.device->handle, error, kSpringboard, nullptr, false);
    if (!springboard) return kCodeAppServiceFailed;
    AppReplyContext reply;
    reply.module = this;
    reply.udid = context.device->udid;
    reply.command = context.packet;
    reply.mode = kAppIconToParent;
    reply.sink = zeb::sendAppEvent;
    for (const std::string& identifier : identifiers) {
        if (context.task && zeb::isCancelled(context.device->taskTable, context.task)) return kCodeCancelled;
        reply.bundle_id = identifier;
        askIcon(springboard->connection, reply);
    }
    return kCodeSuccess;
}

namespace zeb {

CFTypeRef CopyAppIcon(ZEBModuleApp* module, const IPCPacket1* command, ZEBDevice& device,
                      const std::string& bundleId) {
    int32_t error = 0;
    ServicePtr springboard = StartService(device.handle, error, kSpringboard, nullptr, false);
    if (!springboard) return nullptr;
    AppReplyContext reply;
    reply.module = module;
    reply.udid = device.udid;
    reply.command = command;
    reply.mode = kAppIconToCf;
    reply.bundle_id = bundleId;
    askIcon(springboard->connection, reply);
    return reply.cf_reply;
}

}  // namespace zeb
