#include "raw_socket.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

void fail(const std::string& what) {
    fprintf(stderr, "FAIL: %s\n", what.c_str());
    exit(1);
}

int connectMuxSocket(const char* path, int receiveSeconds) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    strncpy(addr.sun_path, path, sizeof(addr.sun_path) - 1);
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0)
        fail(std::string("connect to usbmuxd socket ") + path);
    timeval tv{receiveSeconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    return fd;
}
