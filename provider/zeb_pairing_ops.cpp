// AMDevicePair and the background watch of a pending trust question.
//
// libimobiledevice's pairing saves the record through usbmuxd once the
// device accepts, so the watch only has to keep asking.
#include <chrono>
#include <thread>

#include "zeb_device_registry.h"
#include "zeb_exports.h"
#include "zeb_sigpipe_guard.h"
#include "zeb_lockdown_errors.h"
#include "zeb_lockdown_link.h"
#include "zeb_notifications.h"

using namespace zebprov;

namespace {

constexpr auto kAskInterval = std::chrono::seconds(1);

// Asks once on a link of its own. Pending while the user hasn't answered.
lockdownd_error_t AskToPair(const Device& device) {
    idevice_t idevice = OpenIdevice(device);
    if (!idevice) return LOCKDOWN_E_MUX_ERROR;
    lockdownd_client_t client = nullptr;
    lockdownd_error_t err = lockdownd_client_new(idevice, &client, "zebrelo");
    if (err == LOCKDOWN_E_SUCCESS) {
        {
            LinkDeadline deadline(LinkSocket(client), LockdownTimeoutMs());
            err = lockdownd_pair(client, nullptr);
        }
        lockdownd_client_free(client);
    }
    idevice_free(idevice);
    return err;
}

void WatchTrust(std::shared_ptr<Device> device) {
    SigpipeGuard noSigpipe;
    for (;;) {
        std::this_thread::sleep_for(kAskInterval);
        if (device->gone) break;
        lockdownd_error_t err = AskToPair(*device);
        if (err == LOCKDOWN_E_SUCCESS) {
            PostDeviceMessage(device, kZebDeviceTrustAnswered);
            break;
        }
        // A refusal ends the watch; the next AMDevicePair asks again.
        if (err == LOCKDOWN_E_USER_DENIED_PAIRING) break;
    }
    device->trustWatchRunning = false;
}

}  // namespace

extern "C" int32_t AMDevicePair(AMDeviceRef handle) {
    SigpipeGuard noSigpipe;
    auto device = FindDevice(handle);
    if (!device) return kZebAMDBadArgument;
    if (device->gone) return kZebAMDDeviceGone;
    if (device->trustWatchRunning) return kZebAMDPairingPending;  // the question is already up
    lockdownd_error_t err;
    {
        std::lock_guard<std::mutex> hold(device->lock);
        if (!device->lockdown) return kZebAMDNotConnected;
        err = BoundedExchange(*device, [](lockdownd_client_t link) { return lockdownd_pair(link, nullptr); });
    }
    if (err == LOCKDOWN_E_SUCCESS) {
        // Accepted at once (the device trusted this host before): the monitor
        // still waits for the answer, so give it one.
        PostDeviceMessage(device, kZebDeviceTrustAnswered);
        return kZebAMDSuccess;
    }
    if (err == LOCKDOWN_E_PAIRING_DIALOG_RESPONSE_PENDING && !device->trustWatchRunning.exchange(true)) {
        std::thread(WatchTrust, device).detach();
    }
    return LockdownToResult(err);
}
