// Link, pairing checks, sessions and values over the device's lockdown
// service. Connect and session calls nest: the link and the session stay
// open until the last matching Disconnect or StopSession.
#include <plist/plist.h>

#include <cstdlib>

#include "zeb_cf_object.h"
#include "zeb_cf_plist.h"
#include "zeb_device_registry.h"
#include "zeb_exports.h"
#include "zeb_sigpipe_guard.h"
#include "zeb_lockdown_errors.h"
#include "zeb_lockdown_link.h"
#include "zeb_pair_record.h"

using namespace zebprov;

namespace {

// Closes the lockdown link and its session. Caller holds device.lock.
void CloseLinkLocked(Device& device) {
    if (device.lockdown && !device.sessionId.empty() && !device.gone) {
        BoundedExchange(device, [&](lockdownd_client_t link) {
            return lockdownd_stop_session(link, device.sessionId.c_str());
        });
    }
    if (device.lockdown) {  // not dropped as silent above
        lockdownd_client_free(device.lockdown);
        device.lockdown = nullptr;
    }
    if (device.idevice) {
        idevice_free(device.idevice);
        device.idevice = nullptr;
    }
    device.sessionId.clear();
    device.sessionCount = 0;
    device.connectCount = 0;
}

// Ends a session and replaces the link with a fresh one: a link that has
// left TLS is not trusted to enter it again cleanly, so the next session
// starts on a new link. A device that stays silent instead gets none until
// its holders disconnect. Caller holds device.lock.
void EndSessionLocked(Device& device, const std::string& sessionId) {
    if (!device.lockdown || device.gone) return;
    BoundedExchange(device, [&](lockdownd_client_t link) { return lockdownd_stop_session(link, sessionId.c_str()); });
    if (!device.lockdown) return;
    lockdownd_client_free(device.lockdown);
    device.lockdown = nullptr;
    if (lockdownd_client_new(device.idevice, &device.lockdown, kLockdownLabel) != LOCKDOWN_E_SUCCESS)
        device.lockdown = nullptr;
}

std::string TextOf(CFStringRef value) {
    auto* s = zebcf::AsString(value);
    return s ? s->utf8 : std::string();
}

}  // namespace

extern "C" {

int32_t AMDeviceConnect(AMDeviceRef handle) {
    SigpipeGuard noSigpipe;
    auto device = FindDevice(handle);
    if (!device) return kZebAMDBadArgument;
    std::lock_guard<std::mutex> hold(device->lock);
    if (device->gone) return kZebAMDDeviceGone;
    if (device->connectCount > 0) {
        ++device->connectCount;
        return kZebAMDSuccess;
    }
    device->idevice = OpenIdevice(*device);
    if (!device->idevice) return kZebAMDNotConnected;
    lockdownd_error_t err = lockdownd_client_new(device->idevice, &device->lockdown, kLockdownLabel);
    if (err != LOCKDOWN_E_SUCCESS) {
        device->lockdown = nullptr;
        CloseLinkLocked(*device);
        return LockdownToResult(err);
    }
    device->connectCount = 1;
    return kZebAMDSuccess;
}

int32_t AMDeviceDisconnect(AMDeviceRef handle) {
    SigpipeGuard noSigpipe;
    auto device = FindDevice(handle);
    if (!device) return kZebAMDBadArgument;
    std::lock_guard<std::mutex> hold(device->lock);
    if (device->connectCount == 0) return kZebAMDSuccess;
    if (--device->connectCount == 0) CloseLinkLocked(*device);
    return kZebAMDSuccess;
}

uint32_t AMDeviceGetConnectionID(AMDeviceRef handle) {
    auto device = FindDevice(handle);
    return device ? device->muxHandle : 0;
}

int32_t AMDeviceIsPaired(AMDeviceRef handle) {
    auto device = FindDevice(handle);
    if (!device || device->gone) return 0;
    return ReadPairedHostId(device->udid).empty() ? 0 : 1;
}

int32_t AMDeviceValidatePairing(AMDeviceRef handle) {
    SigpipeGuard noSigpipe;
    auto device = FindDevice(handle);
    if (!device) return kZebAMDBadArgument;
    std::lock_guard<std::mutex> hold(device->lock);
    if (device->gone) return kZebAMDDeviceGone;
    ReplaceHungUpLinkLocked(*device);
    if (!device->lockdown) return kZebAMDNotConnected;
    // A running or idle session proves the pairing.
    if (device->sessionCount > 0 || !device->sessionId.empty()) return kZebAMDSuccess;
    // The device accepts a session only from a host it is paired with. The
    // session is kept, idle: the start that usually follows takes it over
    // instead of paying for a second handshake.
    return StartSessionLocked(*device, device->sessionId);
}

int32_t AMDeviceStartSession(AMDeviceRef handle) {
    SigpipeGuard noSigpipe;
    auto device = FindDevice(handle);
    if (!device) return kZebAMDBadArgument;
    std::lock_guard<std::mutex> hold(device->lock);
    if (device->gone) return kZebAMDDeviceGone;
    ReplaceHungUpLinkLocked(*device);
    if (!device->lockdown) return kZebAMDNotConnected;
    if (device->sessionCount > 0) {
        ++device->sessionCount;
        return kZebAMDSuccess;
    }
    if (!device->sessionId.empty()) {  // the idle one a pairing check left
        device->sessionCount = 1;
        return kZebAMDSuccess;
    }
    int32_t result = StartSessionLocked(*device, device->sessionId);
    if (result == kZebAMDSuccess) device->sessionCount = 1;
    return result;
}

int32_t AMDeviceStopSession(AMDeviceRef handle) {
    SigpipeGuard noSigpipe;
    auto device = FindDevice(handle);
    if (!device) return kZebAMDBadArgument;
    std::lock_guard<std::mutex> hold(device->lock);
    if (device->sessionCount == 0) return kZebAMDSessionInactive;
    if (--device->sessionCount == 0) {
        EndSessionLocked(*device, device->sessionId);
        device->sessionId.clear();
    }
    return kZebAMDSuccess;
}

CFTypeRef AMDeviceCopyValue(AMDeviceRef handle, CFStringRef domain, CFStringRef key) {
    SigpipeGuard noSigpipe;
    auto device = FindDevice(handle);
    if (!device) return nullptr;
    std::lock_guard<std::mutex> hold(device->lock);
    if (!device->gone) ReplaceHungUpLinkLocked(*device);
    if (device->gone || !device->lockdown) return nullptr;
    std::string domainText = TextOf(domain), keyText = TextOf(key);
    plist_t node = nullptr;
    lockdownd_error_t err = BoundedExchange(*device, [&](lockdownd_client_t link) {
        return lockdownd_get_value(link, domain ? domainText.c_str() : nullptr, key ? keyText.c_str() : nullptr, &node);
    });
    if (err != LOCKDOWN_E_SUCCESS) {
        plist_free(node);
        return nullptr;
    }
    CFTypeRef value = zebcf::FromPlist(node);
    plist_free(node);
    return value;
}

int32_t AMDeviceSetValue(AMDeviceRef handle, CFStringRef domain, CFStringRef key, CFTypeRef value) {
    SigpipeGuard noSigpipe;
    auto device = FindDevice(handle);
    if (!device || !key || !value) return kZebAMDBadArgument;
    plist_t node = zebcf::ToPlist(value);
    if (!node) return kZebAMDBadArgument;
    std::lock_guard<std::mutex> hold(device->lock);
    if (!device->gone) ReplaceHungUpLinkLocked(*device);
    if (device->gone || !device->lockdown) {
        plist_free(node);
        return device->gone ? kZebAMDDeviceGone : kZebAMDNotConnected;
    }
    std::string domainText = TextOf(domain), keyText = TextOf(key);
    // The library takes the node over.
    lockdownd_error_t err = BoundedExchange(*device, [&](lockdownd_client_t link) {
        return lockdownd_set_value(link, domain ? domainText.c_str() : nullptr, keyText.c_str(), node);
    });
    return LockdownToResult(err);
}

}  // extern "C"
