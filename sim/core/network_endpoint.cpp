#include "core/network_endpoint.h"

#include "core/device.h"
#include "core/device_port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/rand.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <thread>

namespace zsim {
namespace {

constexpr uint16_t kLockdownPort = 62078;
// A host that asked for a service and never came is given this long.
constexpr int kServiceAcceptMs = 60000;

int listenTcp(const std::string& address, uint16_t port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &addr.sin_addr) != 1 ||
        bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || listen(fd, 16) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

std::string randomLoopback() {
    unsigned char b[3];
    RAND_bytes(b, sizeof(b));
    char text[20];
    snprintf(text, sizeof(text), "127.%u.%u.%u", 1u + b[0] % 254, 1u + b[1] % 254, 1u + b[2] % 254);
    return text;
}

}  // namespace

std::shared_ptr<NetworkEndpoint> NetworkEndpoint::open(const std::shared_ptr<Device>& device, std::string& error) {
    std::shared_ptr<NetworkEndpoint> endpoint(new NetworkEndpoint());
    endpoint->device_ = device;
    // Keep the address of an earlier visit when it is still free.
    std::string address = device->networkAddress();
    for (int attempt = 0; attempt < 32 && endpoint->lockdownFd_ < 0; ++attempt) {
        if (address.empty() || attempt > 0) address = randomLoopback();
        endpoint->lockdownFd_ = listenTcp(address, kLockdownPort);
    }
    if (endpoint->lockdownFd_ < 0) {
        error = "no loopback address free for network device " + device->udid();
        return nullptr;
    }
    endpoint->address_ = address;
    device->setNetworkAddress(address);
    std::weak_ptr<NetworkEndpoint> weak = endpoint;
    device->setServicePortHook([weak](uint16_t port) {
        if (auto self = weak.lock()) self->listenForService(port);
    });

    std::thread([endpoint] {
        for (;;) {
            int fd = accept4(endpoint->lockdownFd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) {
                if (errno == EINTR || errno == ECONNABORTED) continue;
                ::close(endpoint->lockdownFd_);  // shut down: the device has left
                return;
            }
            auto device = endpoint->device_.lock();
            if (!device || endpoint->closed_) {
                ::close(fd);
                continue;
            }
            std::thread([device, fd] {
                serveDeviceConnection(fd, *device, "");
                ::close(fd);
            }).detach();
        }
    }).detach();
    return endpoint;
}

NetworkEndpoint::~NetworkEndpoint() { close(); }

void NetworkEndpoint::close() {
    if (closed_.exchange(true)) return;
    if (auto device = device_.lock()) device->setServicePortHook(nullptr);
    if (lockdownFd_ >= 0) shutdown(lockdownFd_, SHUT_RDWR);  // wakes the accept loop
}

void NetworkEndpoint::listenForService(uint16_t port) {
    int fd = listenTcp(address_, port);
    if (fd < 0) {
        fprintf(stderr, "zebrelo-sim: cannot listen on %s:%u\n", address_.c_str(), port);
        return;
    }
    std::thread([self = shared_from_this(), fd, port] {
        pollfd pfd{fd, POLLIN, 0};
        int client = -1;
        if (poll(&pfd, 1, kServiceAcceptMs) == 1) client = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC);
        ::close(fd);
        auto device = self->device_.lock();
        if (!device) {
            if (client >= 0) ::close(client);
            return;
        }
        std::optional<std::string> service = device->takeServicePort(port);
        if (client >= 0 && service && !self->closed_) serveDeviceConnection(client, *device, *service);
        if (client >= 0) ::close(client);
    }).detach();
}

}  // namespace zsim
