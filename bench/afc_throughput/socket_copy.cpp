#include "socket_copy.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

namespace bench {

double timeSocketCopy(const std::string& file, size_t chunk, const std::string& sink) {
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) return -1;
    const int in = ::open(file.c_str(), O_RDONLY);
    const int out = sink.empty() ? -1 : ::open(sink.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (in < 0 || (!sink.empty() && out < 0)) return -1;
    const auto start = std::chrono::steady_clock::now();
    std::thread sender([&] {
        std::vector<char> buf(chunk);
        ssize_t n;
        while ((n = ::read(in, buf.data(), buf.size())) > 0) {
            for (ssize_t off = 0; off < n;) {
                ssize_t w = ::send(fds[1], buf.data() + off, static_cast<size_t>(n - off), MSG_NOSIGNAL);
                if (w <= 0) return;
                off += w;
            }
        }
        ::shutdown(fds[1], SHUT_WR);
    });
    std::vector<char> buf(chunk);
    bool ok = true;
    ssize_t n;
    while ((n = ::recv(fds[0], buf.data(), buf.size(), 0)) > 0) {
        if (out >= 0) ok = ok && ::write(out, buf.data(), static_cast<size_t>(n)) == n;
    }
    sender.join();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ::close(in);
    if (out >= 0) ::close(out);
    ::close(fds[0]);
    ::close(fds[1]);
    return ok ? seconds : -1;
}

}  // namespace bench
