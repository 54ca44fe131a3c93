// Plain unix-socket helpers shared by the usbmuxd, control and device sides.
#pragma once

#include "service.h"

#include <cstddef>
#include <string>

namespace zsim {

// Binds and listens on a unix socket path (an old socket file is replaced).
// Returns the fd or -1 with `error` set.
int listenUnix(const std::string& path, std::string& error);

// Full reads and writes on a blocking socket; writes never raise SIGPIPE.
bool readFull(int fd, void* buf, size_t n);
bool writeFull(int fd, const void* buf, size_t n);

// The byte pipe a service sees: the usbmuxd client's socket after Connect.
class FdStream : public ServiceStream {
public:
    explicit FdStream(int fd) : fd_(fd) {}
    ssize_t readSome(void* buf, size_t n) override;
    bool writeAll(const void* buf, size_t n) override;

private:
    int fd_;
};

}  // namespace zsim
