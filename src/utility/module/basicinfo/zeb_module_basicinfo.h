// Commands 15 (bring a device to ready), 300 (what the device is and what
// fills it) and 303 (rename it).
#pragma once

#include "zeb_module.h"

class ZEBModuleBasicInfo : public ZEBModule {
public:
    int execute(IPCPacket1* packet) override;

private:
    int64_t overview(CommandContext& context);
    int64_t rename(CommandContext& context);
    void sendObject(const CommandContext& context, const std::string& json);
};

namespace zeb {
// The overview's two objects for the developer's self-test, to stdout.
void printDeviceOverview(ZEBDevice& device);
}
