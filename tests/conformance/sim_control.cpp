// Sends one command line to zebrelo-sim's control socket and prints the
// answer line. Exit status 0 when the answer starts with "ok".
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: sim_control SOCKET 'COMMAND'\n");
        return 2;
    }
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    strncpy(addr.sun_path, argv[1], sizeof(addr.sun_path) - 1);
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        perror("sim_control: connect");
        return 2;
    }
    std::string line = std::string(argv[2]) + "\n";
    if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) return 2;
    std::string answer;
    char c;
    while (read(fd, &c, 1) == 1 && c != '\n') answer.push_back(c);
    close(fd);
    printf("%s\n", answer.c_str());
    return answer.rfind("ok", 0) == 0 ? 0 : 1;
}
