#include "zeb_lockdown_link.h"

namespace zebprov {

void DropLinkLocked(Device& device) {
    if (!device.lockdown) return;
    lockdownd_client_free(device.lockdown);
    device.lockdown = nullptr;
    device.sessionId.clear();
}

}  // namespace zebprov
