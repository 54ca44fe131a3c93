// libimobiledevice keeps the lockdown link's socket non-blocking, and its
// TLS handshake sleeps 100 ms whenever the device's answer has not arrived
// yet: at least twice per session, however fast the device is. For the
// length of a handshake the socket blocks instead, so the handshake waits
// exactly as long as the device takes. A handshake with a silent device is
// cut short by the deadline armed around it (zeb_link_deadline.h).
#pragma once

#include <libimobiledevice/lockdown.h>

namespace zebprov {

class BlockingDuringHandshake {
public:
    explicit BlockingDuringHandshake(idevice_connection_t link);
    explicit BlockingDuringHandshake(lockdownd_client_t client);
    ~BlockingDuringHandshake();
    BlockingDuringHandshake(const BlockingDuringHandshake&) = delete;
    BlockingDuringHandshake& operator=(const BlockingDuringHandshake&) = delete;

private:
    void Block(int fd);
    int fd_ = -1;
    int savedFlags_ = 0;
};

}  // namespace zebprov
