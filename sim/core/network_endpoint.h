// A network device is reached the way a phone on Wi-Fi is: the host takes
// its address from usbmuxd and connects over TCP itself. Each network
// device gets a loopback address of its own (127.a.b.c, which Linux routes
// to the loopback interface without any set-up) with lockdown on 62078 and
// every started service on its port.
#pragma once

#include <atomic>
#include <memory>
#include <string>

namespace zsim {

class Device;

class NetworkEndpoint : public std::enable_shared_from_this<NetworkEndpoint> {
public:
    static std::shared_ptr<NetworkEndpoint> open(const std::shared_ptr<Device>& device, std::string& error);
    ~NetworkEndpoint();
    // Stops accepting (the device left the network).
    void close();
    // Accepts the one connection a started service expects.
    void listenForService(uint16_t port);

private:
    NetworkEndpoint() = default;
    std::weak_ptr<Device> device_;
    std::string address_;
    int lockdownFd_ = -1;
    std::atomic<bool> closed_{false};
};

}  // namespace zsim
