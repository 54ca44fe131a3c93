// A limit on how long one library call may wait for a device.
//
// libimobiledevice waits 30 s for every lockdown answer, and a lockdown
// client freed while its session still looks open asks to stop it once
// more; a TLS handshake on a blocking socket and an encrypted send into a
// full socket wait without end. A deadline armed around such a call shuts
// the link's socket down once the call has taken longer than the provider
// allows: each wait of the library on that socket then ends at once, and
// the link is broken for good. Calls that close their link themselves are
// never armed, so a socket number is never cut after it was reused.
#pragma once

#include <chrono>

#include "zeb_link_socket.h"

namespace zebprov {

// How long one lockdown exchange (a request and its answer, or a TLS
// handshake) may take: as long as the library waits for an answer, unless
// ZEBRELO_PROVIDER_IO_TIMEOUT_MS says otherwise.
int LockdownTimeoutMs();

class LinkDeadline {
public:
    // No deadline for fd -1.
    LinkDeadline(int fd, int timeoutMs);
    ~LinkDeadline() { Disarm(); }
    LinkDeadline(const LinkDeadline&) = delete;
    LinkDeadline& operator=(const LinkDeadline&) = delete;

    // Ends the watch; true when the time ran out and the link was cut.
    bool Disarm();

    struct Watched {
        int fd;
        std::chrono::steady_clock::time_point due;
        bool expired = false;
    };

private:
    Watched watched_;
    bool armed_ = false;
};

}  // namespace zebprov
