// One socket of a channel, and what a channel tells its owner.
#pragma once

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <cstdint>
#include <string>

namespace bas {

// One per socket, owned by the channel that made it and freed with that
// channel, after its threads have ended: other threads may still hold the
// pointer after the socket left the channel's set. The worker's channels
// live as long as the process.
struct SocketRecord {
    int socket = -1;
    int port = 0;              // port given to connect/listen; the listener's for accepted ones
    const char* host = nullptr;  // "127.0.0.1" for connected/listening, null for accepted (owned)
    std::atomic<int32_t> lastActivity{0};  // local seconds of last traffic; heart thread swaps with 0
    int accepted = 0;          // 0 made by connect, 1 by accept (and the listener)
    std::atomic<int> closed{0};  // 1 once the closing has been delivered
    int inReadSet = 0;         // 1 once the receive thread watches it
    std::mutex sendLock;       // one sender at a time, so frames never interleave

    SocketRecord() = default;
    SocketRecord(const SocketRecord&) = delete;
    SocketRecord& operator=(const SocketRecord&) = delete;
    ~SocketRecord() { free(const_cast<char*>(host)); }
};

enum ChannelEventType : int32_t {
    kBeforeAccept = 0,
    kAccepted = 1,
    kHeartDue = 2,    // callback returning non-zero suppresses the heart test
    kHeartRound = 3,
    kLogText = 4,
};

struct ChannelEvent {
    int32_t type = 0;
    SocketRecord* socket = nullptr;
    int32_t heartCount = 0;
    std::string text;
};

using ChannelEventCallback = int (*)(ChannelEvent*);

}  // namespace bas
