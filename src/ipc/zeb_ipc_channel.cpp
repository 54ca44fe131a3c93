#include "zeb_ipc_channel.h"

#include "zeb_send_all.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <vector>

namespace bas {

namespace {

// How many 4096-byte reads one wake-up may take from a busy socket before
// the other sockets get their turn.
constexpr int kReadsPerWakeup = 256;

// An event goes out as two sends (text, then tail); with Nagle's delay the
// second would wait for the peer's delayed acknowledgement.
void noDelay(int fd) {
    int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

sockaddr_in loopback(uint16_t networkOrderPort) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = networkOrderPort;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

}  // namespace

int32_t localSecondsNow() { return static_cast<int32_t>(time(nullptr)); }

IPCChannel::IPCChannel() : receiveThread([this] { receiveLoop(); }) {}

IPCChannel::~IPCChannel() {
    stopAndJoin();
    // Sockets are closed only now that no thread can be inside a call on
    // them; stop() just shut them down.
    std::lock_guard<std::mutex> hold(lock);
    for (auto& record : records)
        if (record->socket >= 0) ::close(record->socket);
}

SocketRecord* IPCChannel::makeRecord(int fd, int port, const char* host, int accepted) {
    auto record = std::make_unique<SocketRecord>();
    record->socket = fd;
    record->port = port;
    record->host = host ? strdup(host) : nullptr;
    record->accepted = accepted;
    std::lock_guard<std::mutex> hold(lock);
    records.push_back(std::move(record));
    return records.back().get();
}

void IPCChannel::stopAndJoin() {
    stop();
    if (receiveThread.joinable()) receiveThread.join();
    std::vector<std::thread> threads;
    {
        std::lock_guard<std::mutex> hold(threadsLock);
        threads.swap(helperThreads);
    }
    for (auto& thread : threads) {
        if (thread.joinable()) thread.join();
    }
}

int IPCChannel::report(int32_t type, SocketRecord* socket, int32_t heartCount, std::string text) {
    if (!eventCallback) return 0;
    ChannelEvent event;
    event.type = type;
    event.socket = socket;
    event.heartCount = heartCount;
    event.text = std::move(text);
    return eventCallback(&event);
}

static std::string formatText(const char* format, long a, long b = 0) {
    char text[128];
    snprintf(text, sizeof text, format, a, b);
    return text;
}

void IPCChannel::addSocket(SocketRecord* record) {
    {
        std::lock_guard<std::mutex> hold(lock);
        sockets.insert(record);
    }
    socketsChanged.notify_all();
}

void IPCChannel::removeSocket(SocketRecord* record) {
    std::lock_guard<std::mutex> hold(lock);
    sockets.erase(record);
}

size_t IPCChannel::socketCount() {
    std::lock_guard<std::mutex> hold(lock);
    return sockets.size();
}

std::set<SocketRecord*> IPCChannel::socketsSnapshot() {
    std::lock_guard<std::mutex> hold(lock);
    return sockets;
}

SocketRecord* IPCChannel::connect(int port) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (fd < 0) {
        report(kLogText, nullptr, 0, formatText("connect error: %d", errno));
        return nullptr;
    }
    sockaddr_in address = loopback(htons(static_cast<uint16_t>(port)));
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        report(kLogText, nullptr, 0, formatText("connect error: %d", errno));
        ::close(fd);
        return nullptr;
    }
    noDelay(fd);
    SocketRecord* record = makeRecord(fd, port, "127.0.0.1", 0);
    addSocket(record);
    std::lock_guard<std::mutex> hold(threadsLock);
    helperThreads.emplace_back([this, record] { heartLoop(record); });
    return record;
}

int IPCChannel::freePort() {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (fd < 0) {
        printf("socket() error: %s\n", strerror(errno));
        return -1;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    socklen_t size = sizeof address;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        printf("bind() error: %s\n", strerror(errno));
        ::close(fd);
        return -1;
    }
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        printf("getsockname() error: %s\n", strerror(errno));
        ::close(fd);
        return -1;
    }
    ::close(fd);
    return address.sin_port;  // deliberately left in network byte order
}

SocketRecord* IPCChannel::listen(int port) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (fd < 0) return nullptr;
    int reuse = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    sockaddr_in address = loopback(htons(static_cast<uint16_t>(port)));
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(fd, 4) != 0) {
        ::close(fd);
        return nullptr;
    }
    listenRecord = makeRecord(fd, port, "127.0.0.1", 1);
    std::lock_guard<std::mutex> hold(threadsLock);
    helperThreads.emplace_back([this, listener = listenRecord] { acceptLoop(listener); });
    return listenRecord;
}

bool IPCChannel::send(SocketRecord* socket, const void* data, size_t length) {
    return send(socket, data, length, nullptr, 0);
}

bool IPCChannel::send(SocketRecord* socket, const void* head, size_t headLength, const void* tail, size_t tailLength) {
    socket->lastActivity.exchange(localSecondsNow());
    std::lock_guard<std::mutex> hold(socket->sendLock);
    return zeb::sendAll(socket->socket, head, headLength, tail, tailLength);
}

void IPCChannel::closeAll() {
    // The peers see the end at once; the descriptors stay open until the
    // channel is destroyed, so no thread's poll or recv meets a reused one.
    std::lock_guard<std::mutex> hold(lock);
    for (SocketRecord* record : sockets) ::shutdown(record->socket, SHUT_RDWR);
    sockets.clear();
}

void IPCChannel::stop() {
    if (stoppingFlag.exchange(true)) return;
    closeAll();
    if (listenRecord) ::shutdown(listenRecord->socket, SHUT_RDWR);
    socketsChanged.notify_all();
    heartWake.notify_all();
}

void IPCChannel::receiveLoop() {
    std::vector<pollfd> watched;             // the master set
    std::vector<SocketRecord*> watchedRecords;  // parallel to watched
    std::vector<SocketRecord*> round;
    char buffer[kReceiveBufferSize];

    while (!stopping()) {
        round.clear();
        {
            std::unique_lock<std::mutex> hold(lock);
            socketsChanged.wait(hold, [this] { return !sockets.empty() || stopping(); });
            if (stopping()) break;
            for (SocketRecord* record : sockets) {
                if (record->inReadSet == 0) {
                    if (watched.size() < kMaxWatchedSockets) {
                        watched.push_back({record->socket, POLLIN, 0});
                        watchedRecords.push_back(record);
                    }
                    record->inReadSet = 1;
                }
                round.push_back(record);
            }
        }

        int ready = ::poll(watched.data(), watched.size(), 1000);
        if (ready < 0 && errno != EINTR) report(kLogText, nullptr, 0, formatText("SelectRecv select() failed: %d", errno));
        if (ready <= 0) continue;

        for (size_t i = 0; i < watched.size();) {
            SocketRecord* record = watchedRecords[i];
            if (!(watched[i].revents & (POLLIN | POLLHUP | POLLERR))) {
                ++i;
                continue;
            }
            watched[i].revents = 0;
            // Reads stay 4096 bytes each; while more is waiting they follow
            // one another without a trip through poll.
            bool gone = false;
            for (int burst = 0; burst < kReadsPerWakeup; ++burst) {
                ssize_t count = ::recv(record->socket, buffer, sizeof buffer, burst == 0 ? 0 : MSG_DONTWAIT);
                if (count < 0 && burst > 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
                if (count < 1) {
                    report(kLogText, record, 0, formatText("SelectRecv recv: readed: %ld,code: %d", count, count < 0 ? errno : 0));
                    {
                        std::lock_guard<std::mutex> hold(lock);
                        sockets.erase(record);
                        watched.erase(watched.begin() + static_cast<long>(i));
                        watchedRecords.erase(watchedRecords.begin() + static_cast<long>(i));
                    }
                    if (record->closed.exchange(1) == 0) onReceive(record, nullptr, 0);
                    gone = true;
                    break;
                }
                record->lastActivity.exchange(localSecondsNow());
                if (count == sizeof kHeartTest && memcmp(buffer, kHeartTest, sizeof kHeartTest) == 0) {
                    report(kLogText, record, 0, formatText("SelectRecv Heart Test Receive: %ld", 8));
                } else {
                    onReceive(record, buffer, static_cast<size_t>(count));
                }
                if (static_cast<size_t>(count) < sizeof buffer) break;  // the socket is drained
            }
            if (gone) continue;
            ++i;
        }
    }
}

void IPCChannel::acceptLoop(SocketRecord* listener) {
    while (!stopping()) {
        report(kBeforeAccept, listener, 0, {});
        int fd = ::accept4(listener->socket, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (stopping()) break;
            if (errno == EBADF || errno == EINVAL) break;  // the listener is gone
            continue;
        }
        int value = 0;
        socklen_t size = sizeof value;
        if (getsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &value, &size) == 0)
            report(kLogText, nullptr, 0, formatText("SO_KEEPALIVE Value: %ld", value));
        value = 1;
        if (setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &value, sizeof value) == 0)
            report(kLogText, nullptr, 0, "Set SO_KEEPALIVE: ON");
        // The socket stays blocking; the words of the log line are historic.
        report(kLogText, nullptr, 0, "Set ioctlsocket : FIONBIO ON");
        noDelay(fd);
        SocketRecord* record = makeRecord(fd, listener->port, nullptr, 1);
        addSocket(record);
        report(kAccepted, record, 0, {});
    }
}

void IPCChannel::heartLoop(SocketRecord* socket) {
    int32_t roundCount = 0;
    for (;;) {
        {
            std::unique_lock<std::mutex> hold(lock);
            if (sockets.empty() || sockets.count(socket) == 0 || socket->closed.load()) return;
        }
        {
            std::unique_lock<std::mutex> hold(heartLock);
            if (heartWake.wait_for(hold, heartRound, [this] { return stopping(); })) return;
        }
        roundCount = roundCount >= 0x40000000 ? 1 : roundCount + 1;
        report(kHeartRound, socket, roundCount, {});
        if (heartTestDue(socket->lastActivity.exchange(0))) {
            if (report(kHeartDue, socket, roundCount, {}) == 0)
                (void)::send(socket->socket, kHeartTest, sizeof kHeartTest, MSG_NOSIGNAL);
        }
        if (stopping()) return;
    }
}

}  // namespace bas
