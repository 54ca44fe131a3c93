#include "zeb_module_file.h"

int ZEBModuleFile::execute(IPCPacket1* packet) {
    DispatchRules rules;
    rules.longTask = true;
    rules.silentParseFailure = true;
    dispatch(packet, rules, [this](CommandContext& context) -> int64_t {
        switch (context.packet->commandType) {
            case 701: return copyItems(context);
            case 702: download(context); return kAlreadyReported;
            case 703: upload(context); return kAlreadyReported;
            case 704: return listFolder(context);
            default: return kCodeSuccess;
        }
    });
    return 0;
}
