// The device's lockdown service on port 62078: values, pairing, sessions
// (TLS) and the starting of other services.
#pragma once

#include <atomic>

namespace zsim {

class Device;

// Serves one host connection until the host leaves or the device closes it.
void runLockdown(int fd, Device& device, const std::atomic<bool>& closing);

}  // namespace zsim
