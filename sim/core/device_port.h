// Serves one host connection to a device port: lockdown, or the service
// that StartService put on that port. Used for usbmuxd Connect and for the
// TCP ports of network devices alike.
#pragma once

#include <string>

namespace zsim {

class Device;

// `service` empty means lockdown. Returns when the connection ends; the
// caller closes `fd`.
void serveDeviceConnection(int fd, Device& device, const std::string& service);

}  // namespace zsim
