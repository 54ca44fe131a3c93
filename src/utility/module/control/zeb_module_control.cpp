#include "zeb_module_control.h"

#include "zeb_device_monitor.h"
#include "zeb_task_table.h"

#include <glog/logging.h>

int ZEBModuleControl::execute(IPCPacket1* packet) {
    DispatchRules rules;
    rules.needsDevice = false;  // an empty uuid reaches the global table
    rules.anyVersion = true;
    dispatch(packet, rules, [this](CommandContext& context) -> int64_t {
        if (context.packet->commandType != 600) return kCodeSuccess;
        if (context.uuid.empty()) {
            zeb::cancelTask(zeb::globalTaskTable(), context.code);
        } else {
            DevicePtr device = ZEBDeviceMonitor::instance().Find(context.uuid);
            if (!device) return kCodeNoDevice;
            zeb::cancelTask(device->taskTable, context.code);
        }
        LOG(INFO) << "Cancel: " << context.code;
        return kCodeSuccess;
    });
    return 0;
}
