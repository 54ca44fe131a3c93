#include "zeb_lockdown_link.h"

#include <cstdlib>

#include "zeb_handshake_blocking.h"
#include "zeb_lockdown_errors.h"
#include "zeb_pair_record.h"
#include "zeb_socket_io.h"

namespace zebprov {

void DropLinkLocked(Device& device) {
    if (!device.lockdown) return;
    lockdownd_client_free(device.lockdown);
    device.lockdown = nullptr;
    device.sessionId.clear();
}

int32_t StartSessionLocked(Device& device, std::string& sessionId) {
    std::string hostId = ReadPairedHostId(device.udid);
    if (hostId.empty()) return kZebAMDInvalidHostID;
    char* id = nullptr;
    int ssl = 0;
    // The socket's mode is restored before a silent link is dropped.
    lockdownd_error_t err = BoundedExchange(device, [&](lockdownd_client_t link) {
        BlockingDuringHandshake noHandshakeSleeps(link);
        return lockdownd_start_session(link, hostId.c_str(), &id, &ssl);
    });
    if (err != LOCKDOWN_E_SUCCESS) {
        free(id);
        return LockdownToResult(err);
    }
    sessionId = id ? id : "";
    free(id);
    return kZebAMDSuccess;
}

void ReplaceHungUpLinkLocked(Device& device) {
    if (!device.lockdown || device.gone || !device.idevice || !PeerHungUp(LinkSocket(device.lockdown))) return;
    DropLinkLocked(device);
    if (lockdownd_client_new(device.idevice, &device.lockdown, kLockdownLabel) != LOCKDOWN_E_SUCCESS) {
        device.lockdown = nullptr;
        return;
    }
    // A session that failed to start again leaves the holders' exchanges to
    // fail as the device answers them.
    if (device.sessionCount > 0) StartSessionLocked(device, device.sessionId);
}

}  // namespace zebprov
