// Exchanges on a device's lockdown link under the provider's deadline: a
// device that stays silent past it loses the link, so that its holders'
// later calls fail at once instead of each waiting out the library.
#pragma once

#include "zeb_device_registry.h"
#include "zeb_link_deadline.h"

#include <string>

namespace zebprov {

// How the provider names itself to lockdown.
inline constexpr char kLockdownLabel[] = "zebrelo";

// Frees a link whose socket was cut: the client's own last StopSession
// fails at once on the dead socket. The device is left without a link until
// its last holder disconnects; the counts stay, so that the holders' stop
// and disconnect calls still balance. Caller holds device.lock.
void DropLinkLocked(Device& device);

// exchange(device.lockdown), bounded. Caller holds device.lock, and the
// device has a link; exchange must not free it.
template <typename Exchange>
auto BoundedExchange(Device& device, Exchange exchange) -> decltype(exchange(device.lockdown)) {
    LinkDeadline deadline(LinkSocket(device.lockdown), LockdownTimeoutMs());
    auto result = exchange(device.lockdown);
    if (deadline.Disarm()) DropLinkLocked(device);
    return result;
}

// Opens a session on the device's link with the host's pair record, its id
// into sessionId. Caller holds device.lock.
int32_t StartSessionLocked(Device& device, std::string& sessionId);

// The link is shared by every holder of the device. When the device hung
// up on it (its connections broken, the device still attached), it is
// replaced before the next exchange, with a session again if its holders
// had one: the next user opens afresh instead of failing on it. A link cut
// for silence is not reopened here: it stays dropped until its holders
// disconnect, so that a silent device doesn't cost each call another wait.
// Caller holds device.lock.
void ReplaceHungUpLinkLocked(Device& device);

}  // namespace zebprov
