// Command 600: cancel a running command. Cancellation is cooperative: the
// task is marked, and the command ends with code 6 at its next safe point.
#pragma once

#include "zeb_module.h"

class ZEBModuleControl : public ZEBModule {
public:
    int execute(IPCPacket1* packet) override;
};
