#include "core/socket_io.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zsim {

int listenUnix(const std::string& path, std::string& error) {
    sockaddr_un addr{};
    if (path.empty() || path.size() >= sizeof(addr.sun_path)) {
        error = "socket path is empty or too long: " + path;
        return -1;
    }
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = std::string("socket: ") + strerror(errno);
        return -1;
    }
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    unlink(path.c_str());
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || listen(fd, 128) != 0) {
        error = "cannot listen on " + path + ": " + strerror(errno);
        close(fd);
        return -1;
    }
    return fd;
}

bool readFull(int fd, void* buf, size_t n) {
    auto* p = static_cast<char*>(buf);
    while (n > 0) {
        ssize_t got = recv(fd, p, n, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        p += got;
        n -= static_cast<size_t>(got);
    }
    return true;
}

bool writeFull(int fd, const void* buf, size_t n) {
    auto* p = static_cast<const char*>(buf);
    while (n > 0) {
        ssize_t put = send(fd, p, n, MSG_NOSIGNAL);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        p += put;
        n -= static_cast<size_t>(put);
    }
    return true;
}

ssize_t FdStream::readSome(void* buf, size_t n) {
    for (;;) {
        ssize_t got = recv(fd_, buf, n, 0);
        if (got < 0 && errno == EINTR) continue;
        return got;
    }
}

bool FdStream::writeAll(const void* buf, size_t n) { return writeFull(fd_, buf, n); }

}  // namespace zsim
