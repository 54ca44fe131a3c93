#include "zeb_module_erase.h"

int ZEBModuleErase::execute(IPCPacket1* packet) {
    DispatchRules rules;
    rules.longTask = true;
    rules.silentWithoutDevice = true;
    dispatch(packet, rules, [this](CommandContext& context) -> int64_t {
        const TaskResult result = context.packet->commandType == 1700 ? eraseContent(context) : fillFreeSpace(context);
        report(context.packet, context.uuid.c_str(), result.code, backup::resultInfo(result).c_str());
        return kAlreadyReported;
    });
    return 0;
}
