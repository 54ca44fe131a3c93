// bas::IPCChannel: a loopback TCP transport with one receive thread that
// multiplexes all of its sockets. No framing: every read goes to onReceive.
#pragma once

#include "zeb_socket_record.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace bas {

// The eight-byte keep-alive that a connected side sends after a silent round.
inline constexpr unsigned char kHeartTest[8] = {0x16, 0x16, 0x16, 0x16, 0x16, 0x16, 0x16, 0x16};
inline constexpr size_t kReceiveBufferSize = 4096;
// Sockets beyond this many stay in the set but aren't listened to.
inline constexpr size_t kMaxWatchedSockets = 64;

class IPCChannel {
public:
    IPCChannel();
    virtual ~IPCChannel();
    IPCChannel(const IPCChannel&) = delete;
    IPCChannel& operator=(const IPCChannel&) = delete;

    virtual void stop();
    // data null and length 0 announce that the socket has closed.
    virtual void onReceive(SocketRecord* socket, const char* data, size_t length) = 0;

    SocketRecord* connect(int port);
    SocketRecord* listen(int port);
    bool send(SocketRecord* socket, const void* data, size_t length);
    // Two buffers as one write: a frame's head and its tail leave together.
    bool send(SocketRecord* socket, const void* head, size_t headLength, const void* tail, size_t tailLength);
    void closeAll();

    // A free TCP port as getsockname leaves it: in network byte order. The
    // number travels to the other side untouched, which swaps it back when
    // it connects.
    static int freePort();

    void setEventCallback(ChannelEventCallback callback) { eventCallback = callback; }
    size_t socketCount();
    // Snapshot of the current socket set.
    std::set<SocketRecord*> socketsSnapshot();

    // Only tests shorten the heart round.
    void setHeartRound(std::chrono::milliseconds round) { heartRound = round; }

    // The heart thread's decision after one round, as a function of the
    // activity stamp it swapped out: send only when nothing moved.
    static bool heartTestDue(int32_t previousActivity) { return previousActivity == 0; }

protected:
    // Stops the channel and waits for its threads. A derived channel calls
    // it first in its own destructor, so no thread calls into a half-gone
    // object.
    void stopAndJoin();
    int report(int32_t type, SocketRecord* socket, int32_t heartCount, std::string text);
    bool stopping() const { return stoppingFlag.load(); }

private:
    void receiveLoop();
    void acceptLoop(SocketRecord* listener);
    void heartLoop(SocketRecord* socket);
    void addSocket(SocketRecord* record);
    void removeSocket(SocketRecord* record);
    SocketRecord* makeRecord(int fd, int port, const char* host, int accepted);

    ChannelEventCallback eventCallback = nullptr;
    std::set<SocketRecord*> sockets;
    std::vector<std::unique_ptr<SocketRecord>> records;  // every record made, under `lock`
    SocketRecord* listenRecord = nullptr;
    std::condition_variable socketsChanged;
    std::mutex lock;
    std::atomic<bool> stoppingFlag{false};
    std::chrono::milliseconds heartRound{30000};
    // Accept and heart threads; joined only when a channel is destroyed,
    // which only tests do (the process's channels live until it ends).
    std::mutex threadsLock;
    std::vector<std::thread> helperThreads;
    std::mutex heartLock;
    std::condition_variable heartWake;
    std::thread receiveThread;  // last: it starts in the constructor
};

// Local time as whole seconds, the unit of SocketRecord::lastActivity.
int32_t localSecondsNow();

}  // namespace bas
