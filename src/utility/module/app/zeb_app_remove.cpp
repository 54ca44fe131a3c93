// Commands 505 (uninstall) and 506 (archive): one proxy conversation per
// identifier, with progress events.
#include "zeb_app_messages.h"
#include "zeb_app_reply.h"
#include "zeb_module_app.h"
#include "zeb_sync_frames.h"
#include "zeb_task_table.h"

int64_t ZEBModuleApp::changeApps(CommandContext& context) {
    std::vector<std::string> identifiers;
    if (!zeb::tailTexts(context, identifiers)) return kCodeBadTail;
    int32_t error = 0;
    ServicePtr proxy =
        zeb::StartService(context.device->handle, error, "com.apple.mobile.installation_proxy", nullptr, false);
    if (!proxy) return kCodeAppServiceFailed;
    const bool uninstall = context.packet->commandType == 505;
    AppReplyContext reply;
    reply.module = this;
    reply.udid = context.device->udid;
    reply.command = context.packet;
    reply.mode = uninstall ? kAppUninstall : kAppArchive;
    reply.sink = zeb::sendAppEvent;
    for (const std::string& identifier : identifiers) {
        if (context.task && zeb::isCancelled(context.device->taskTable, context.task)) return kCodeCancelled;
        SyncMessage* message =
            zeb::encodeAppMessage(uninstall ? zeb::AppMessage::Uninstall : zeb::AppMessage::Archive, identifier);
        if (!message) continue;
        reply.bundle_id = identifier;
        SyncExchange(proxy->connection, message, AppReplyHandler, &reply);
        FreeSyncMessage(message);
    }
    return kCodeSuccess;
}
