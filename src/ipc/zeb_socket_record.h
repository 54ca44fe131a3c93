// One socket of a channel, and what a channel tells its owner.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace bas {

// Allocated once per socket and never freed while the process lives: other
// threads may still hold the pointer after the socket left its channel.
struct SocketRecord {
    int socket = -1;
    int port = 0;              // port given to connect/listen; the listener's for accepted ones
    const char* host = nullptr;  // "127.0.0.1" for connected/listening, null for accepted
    std::atomic<int32_t> lastActivity{0};  // local seconds of last traffic; heart thread swaps with 0
    int accepted = 0;          // 0 made by connect, 1 by accept (and the listener)
    std::atomic<int> closed{0};  // 1 once the closing has been delivered
    int inReadSet = 0;         // 1 once the receive thread watches it
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
