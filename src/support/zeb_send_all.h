// Sends a head and a tail on a blocking socket as one write: a frame leaves
// in one call and the tail is sent from where it lies, with no copy behind
// the head. Shared by the worker's channel and the parent's link.
#pragma once

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace zeb {

inline bool sendAll(int fd, const void* head, size_t headLength, const void* tail, size_t tailLength) {
    iovec parts[2] = {{const_cast<void*>(head), headLength}, {const_cast<void*>(tail), tailLength}};
    size_t first = 0;
    const size_t count = tailLength != 0 ? 2 : 1;
    while (first < count) {
        if (parts[first].iov_len == 0) {
            ++first;
            continue;
        }
        msghdr message{};
        message.msg_iov = parts + first;
        message.msg_iovlen = count - first;
        const ssize_t sent = ::sendmsg(fd, &message, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) continue;  // only an interrupted call is tried again
            return false;
        }
        // A blocking socket takes everything at once; a partial send moves on.
        for (size_t done = static_cast<size_t>(sent); done > 0;) {
            const size_t taken = std::min(done, parts[first].iov_len);
            parts[first].iov_base = static_cast<char*>(parts[first].iov_base) + taken;
            parts[first].iov_len -= taken;
            done -= taken;
            if (parts[first].iov_len == 0) ++first;
        }
    }
    return true;
}

}  // namespace zeb
