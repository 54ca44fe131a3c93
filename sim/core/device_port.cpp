#include "core/device_port.h"

#include "core/device.h"
#include "core/lockdown.h"
#include "core/socket_io.h"

namespace zsim {

void serveDeviceConnection(int fd, Device& device, const std::string& service) {
    auto closing = device.trackConnection(fd);
    if (service.empty()) {
        runLockdown(fd, device, *closing);
    } else if (ServiceHandler handler = findService(service)) {
        FdStream stream(fd);
        ServiceContext ctx = device.serviceContext(closing.get());
        handler(stream, ctx);
    }
    device.untrackConnection(fd);
}

}  // namespace zsim
