// The usbmuxd side of the simulator: one thread per client connection.
#pragma once

namespace zsim {

class DeviceHub;

// Serves one usbmuxd client on `fd` and closes it at the end. After a
// successful Connect the same socket becomes the pipe to the device port.
void serveUsbmuxClient(int fd, DeviceHub& hub);

}  // namespace zsim
