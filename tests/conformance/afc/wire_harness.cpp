#include "wire_harness.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace wiretest {
namespace {

class FdStream : public zsim::ServiceStream {
public:
    explicit FdStream(int fd) : fd_(fd) {}
    ssize_t readSome(void* buf, size_t n) override {
        ssize_t r;
        do r = ::recv(fd_, buf, n, 0);
        while (r < 0 && errno == EINTR);
        return r;
    }
    bool writeAll(const void* buf, size_t n) override {
        auto* p = static_cast<const char*>(buf);
        while (n > 0) {
            ssize_t w = ::send(fd_, p, n, MSG_NOSIGNAL);
            if (w < 0 && errno == EINTR) continue;
            if (w <= 0) return false;
            p += w;
            n -= static_cast<size_t>(w);
        }
        return true;
    }

private:
    int fd_;
};

}  // namespace

ServiceRun::ServiceRun(const std::string& service, zsim::ServiceContext ctx) : ctx_(std::move(ctx)) {
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) throw std::runtime_error("socketpair");
    hostFd_ = fds[0];
    serviceFd_ = fds[1];
    ctx_.stalled = &stalled;
    ctx_.closing = &closing;
    zsim::ServiceHandler handler = zsim::findService(service);
    if (!handler) throw std::runtime_error("no service " + service);
    thread_ = std::thread([this, handler] {
        FdStream stream(serviceFd_);
        handler(stream, ctx_);
        // The core closes the connection once the handler returns.
        ::shutdown(serviceFd_, SHUT_RDWR);
        finished_ = true;
    });
}

ServiceRun::~ServiceRun() {
    closing = true;
    closeHost();
    if (thread_.joinable()) thread_.join();
    ::close(serviceFd_);
}

void ServiceRun::closeHost() {
    if (hostFd_ >= 0) {
        ::shutdown(hostFd_, SHUT_RDWR);
        ::close(hostFd_);
        hostFd_ = -1;
    }
}

bool ServiceRun::sendAll(const void* p, size_t n) {
    auto* c = static_cast<const char*>(p);
    while (n > 0) {
        ssize_t w = ::send(hostFd_, c, n, MSG_NOSIGNAL);
        if (w <= 0) return false;
        c += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

bool ServiceRun::recvExact(void* p, size_t n, int timeoutMs) {
    auto* c = static_cast<char*>(p);
    while (n > 0) {
        pollfd pfd{hostFd_, POLLIN, 0};
        if (::poll(&pfd, 1, timeoutMs) <= 0) return false;
        ssize_t r = ::recv(hostFd_, c, n, 0);
        if (r <= 0) return false;
        c += r;
        n -= static_cast<size_t>(r);
    }
    return true;
}

bool ServiceRun::peerClosed(int timeoutMs) {
    pollfd pfd{hostFd_, POLLIN, 0};
    if (::poll(&pfd, 1, timeoutMs) <= 0) return false;
    char c;
    return ::recv(hostFd_, &c, 1, MSG_PEEK) == 0;
}

TempDir::TempDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "zsim-wire-XXXXXX").string();
    if (!::mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp");
    path_ = tmpl;
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

void writeFile(const std::filesystem::path& p, const std::string& content) {
    std::ofstream out(p, std::ios::binary);
    out << content;
}

}  // namespace wiretest
