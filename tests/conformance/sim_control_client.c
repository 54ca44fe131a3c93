#include "sim_control_client.h"

#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

int sim_control(const char* socket_path, const char* command, char* answer, size_t answer_size) {
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    strncpy(addr.sun_path, socket_path, sizeof(addr.sun_path) - 1);
    answer[0] = 0;
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    if (connect(fd, (struct sockaddr*)&addr, sizeof(addr)) != 0) {
        close(fd);
        return -1;
    }
    size_t len = strlen(command);
    if (write(fd, command, len) != (ssize_t)len || write(fd, "\n", 1) != 1) {
        close(fd);
        return -1;
    }
    size_t used = 0;
    char c;
    while (used + 1 < answer_size && read(fd, &c, 1) == 1 && c != '\n') answer[used++] = c;
    answer[used] = 0;
    close(fd);
    return strncmp(answer, "ok", 2) == 0 ? 0 : -1;
}
