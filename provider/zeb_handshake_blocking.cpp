#include "zeb_handshake_blocking.h"

#include <fcntl.h>

#include "zeb_link_socket.h"

namespace zebprov {

BlockingDuringHandshake::BlockingDuringHandshake(lockdownd_client_t client) { Block(LinkSocket(client)); }

BlockingDuringHandshake::BlockingDuringHandshake(idevice_connection_t link) { Block(LinkSocket(link)); }

void BlockingDuringHandshake::Block(int fd) {
    if (fd < 0) return;
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || !(flags & O_NONBLOCK)) return;
    if (fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0) return;
    fd_ = fd;
    savedFlags_ = flags;
}

BlockingDuringHandshake::~BlockingDuringHandshake() {
    if (fd_ >= 0) fcntl(fd_, F_SETFL, savedFlags_);
}

}  // namespace zebprov
