#include "zeb_link_socket.h"

#include <sys/stat.h>

namespace zebprov {

namespace {

// The library's client records begin with the record below them: lockdown
// client -> property list service client -> service client -> connection.
// The chain is read only to find the socket; nothing is written through it.
struct ServiceClientHead {
    idevice_connection_t connection;
};
struct PropertyListClientHead {
    ServiceClientHead* parent;
};
struct LockdownClientHead {
    PropertyListClientHead* parent;
};

idevice_connection_t LinkOf(lockdownd_client_t client) {
    auto* lockdown = reinterpret_cast<LockdownClientHead*>(client);
    if (!lockdown || !lockdown->parent || !lockdown->parent->parent) return nullptr;
    return lockdown->parent->parent->connection;
}

}  // namespace

int LinkSocket(idevice_connection_t link) {
    int fd = -1;
    if (!link || idevice_connection_get_fd(link, &fd) != IDEVICE_E_SUCCESS) return -1;
    struct stat info {};
    if (fd < 0 || fstat(fd, &info) != 0 || !S_ISSOCK(info.st_mode)) return -1;
    return fd;
}

int LinkSocket(lockdownd_client_t client) { return LinkSocket(LinkOf(client)); }

}  // namespace zebprov
