// The socket under a libimobiledevice link, for waiting on it and cutting
// it short.
#pragma once

#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

namespace zebprov {

// The link's socket, or -1 when it has none (or it is not a socket).
int LinkSocket(idevice_connection_t link);
int LinkSocket(lockdownd_client_t client);

}  // namespace zebprov
