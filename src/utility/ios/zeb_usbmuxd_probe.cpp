#include "zeb_device_monitor.h"

#include <netdb.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace zeb {

namespace {

bool connectUnix(const std::string& path) {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    bool ok = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return ok;
}

bool connectTcp(const std::string& host, const std::string& port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) return false;
    bool ok = false;
    for (addrinfo* entry = found; entry && !ok; entry = entry->ai_next) {
        int fd = socket(entry->ai_family, entry->ai_socktype | SOCK_CLOEXEC, entry->ai_protocol);
        if (fd < 0) continue;
        ok = connect(fd, entry->ai_addr, entry->ai_addrlen) == 0;
        close(fd);
    }
    freeaddrinfo(found);
    return ok;
}

}  // namespace

bool usbmuxdReachable() {
    const char* configured = getenv("USBMUXD_SOCKET_ADDRESS");
    if (!configured || !*configured) return connectUnix("/var/run/usbmuxd");
    std::string address = configured;
    if (address.rfind("UNIX:", 0) == 0) return connectUnix(address.substr(5));
    size_t colon = address.rfind(':');
    if (colon == std::string::npos) return false;
    return connectTcp(address.substr(0, colon), address.substr(colon + 1));
}

}  // namespace zeb
