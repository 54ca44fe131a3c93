#include "zeb_module_app.h"

#include <rapidjson/document.h>

int ZEBModuleApp::execute(IPCPacket1* packet) {
    DispatchRules rules;
    // Installs and removals run long and can be cancelled between packages.
    rules.longTask = packet->commandType != 501;
    dispatch(packet, rules, [this](CommandContext& context) -> int64_t {
        switch (context.packet->commandType) {
            case 501: return listApps(context);
            case 502: return fetchIcons(context);
            case 504: return installPackages(context);
            case 505:
            case 506: return changeApps(context);
            default: return kCodeSuccess;
        }
    });
    return 0;
}

namespace zeb {

bool tailTexts(const CommandContext& context, std::vector<std::string>& items) {
    rapidjson::Document tail;
    if (!context.readTail(tail) || !tail.IsArray()) return false;
    for (const auto& item : tail.GetArray())
        if (item.IsString()) items.emplace_back(item.GetString(), item.GetStringLength());
    return true;
}

}  // namespace zeb
