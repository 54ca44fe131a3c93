#include "zeb_socket_io.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>

namespace zebprov {

namespace {

constexpr int kSliceMs = 250;

// Waits until fd is ready for events; false on silence, an error or gone.
bool WaitReady(int fd, short events, int timeoutMs, const std::atomic<bool>* gone) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (gone && *gone) return false;
        pollfd p{fd, events, 0};
        int ready = poll(&p, 1, kSliceMs);
        if (ready > 0) return true;  // errors and hang-ups show in the next call
        if (ready < 0 && errno != EINTR) return false;
        if (std::chrono::steady_clock::now() >= deadline) return false;
    }
}

}  // namespace

int IoTimeoutMs(int defaultMs) {
    if (const char* text = std::getenv("ZEBRELO_PROVIDER_IO_TIMEOUT_MS")) {
        long v = std::strtol(text, nullptr, 10);
        if (v > 0 && v < 24L * 3600 * 1000) return static_cast<int>(v);
    }
    return defaultMs;
}

bool PeerHungUp(int fd) {
    if (fd < 0) return false;
    pollfd p{fd, POLLRDHUP, 0};
    if (poll(&p, 1, 0) <= 0) return false;
    return (p.revents & (POLLHUP | POLLRDHUP | POLLERR | POLLNVAL)) != 0;
}

ssize_t ReceiveSome(int fd, void* buffer, size_t length, int timeoutMs, const std::atomic<bool>* gone) {
    if (fd < 0) return -1;
    if (length == 0) return 0;
    // Data that is already there is taken at once; only an empty socket
    // costs a wait.
    for (;;) {
        ssize_t got = recv(fd, buffer, length, MSG_DONTWAIT);
        if (got >= 0) return got;
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return -1;
        if (!WaitReady(fd, POLLIN, timeoutMs, gone)) return -1;
    }
}

bool ReceiveAll(int fd, void* buffer, size_t length, int timeoutMs, const std::atomic<bool>* gone) {
    auto* p = static_cast<char*>(buffer);
    while (length > 0) {
        ssize_t got = ReceiveSome(fd, p, length, timeoutMs, gone);
        if (got <= 0) return false;
        p += got;
        length -= static_cast<size_t>(got);
    }
    return true;
}

bool SendAll(int fd, const void* buffer, size_t length, int timeoutMs, const std::atomic<bool>* gone) {
    if (fd < 0) return false;
    auto* p = static_cast<const char*>(buffer);
    while (length > 0) {
        ssize_t sent = send(fd, p, length, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) {
            if (errno == EINTR) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
            if (!WaitReady(fd, POLLOUT, timeoutMs, gone)) return false;
            continue;
        }
        p += sent;
        length -= static_cast<size_t>(sent);
    }
    return true;
}

}  // namespace zebprov
