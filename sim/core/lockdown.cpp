#include "core/lockdown.h"

#include "core/device.h"
#include "core/lockdown_requests.h"
#include "core/plist_util.h"
#include "core/socket_io.h"
#include "core/tls_channel.h"

#include <arpa/inet.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

namespace zsim {
namespace {

class LockdownConnection {
public:
    LockdownConnection(int fd, Device& device, const std::atomic<bool>& closing)
        : fd_(fd), device_(device), closing_(closing), requests_(device) {}

    void run() {
        while (!closing_.load()) {
            PlistPtr request = receive();
            if (!request) return;
            while (device_.stalled.load() && !closing_.load())
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            if (closing_.load()) return;
            if (!act(requests_.handle(request.get()))) return;
        }
    }

private:
    bool readBytes(void* buf, size_t n) {
        if (!tls_.active()) return readFull(fd_, buf, n);
        auto* p = static_cast<char*>(buf);
        while (n > 0) {
            ssize_t got = tls_.read(p, n);
            if (got <= 0) return false;
            p += got;
            n -= static_cast<size_t>(got);
        }
        return true;
    }

    bool writeBytes(const void* buf, size_t n) { return tls_.active() ? tls_.write(buf, n) : writeFull(fd_, buf, n); }

    PlistPtr receive() {
        unsigned char prefix[4];
        if (!readBytes(prefix, sizeof(prefix))) return nullptr;
        auto length = lockdownFrameLength(prefix);
        if (!length) return nullptr;
        std::string body(*length, '\0');
        if (!readBytes(body.data(), body.size())) return nullptr;
        return parsePlist(body.data(), body.size());
    }

    bool send(plist_t answer) {
        std::string xml = toXml(answer);
        uint32_t beLength = htonl(static_cast<uint32_t>(xml.size()));
        return writeBytes(&beLength, 4) && writeBytes(xml.data(), xml.size());
    }

    // Sends the answer, then does what it asks of the connection.
    bool act(const LockdownReply& reply) {
        if (reply.answer && !send(reply.answer.get())) return false;
        switch (reply.step) {
        case LockdownStep::Continue: return true;
        case LockdownStep::Close: return false;
        case LockdownStep::StopTls: tls_.shutdown(); return true;
        case LockdownStep::StartTls: break;
        }
        const std::string& host = requests_.hostId();
        std::string key = device_.privateKeyPem();
        std::string error;
        if (!tls_.accept(fd_, device_.certificateFor(host), key, error)) {
            if (error.rfind("TLS handshake", 0) == 0) {
                fprintf(stderr, "zebrelo-sim: %s: %s\n", device_.udid().c_str(), error.c_str());
                return false;
            }
            // The host gave a certificate that is not for this key: fall
            // back to one of the device's own.
            if (!tls_.accept(fd_, device_.certificateFor(""), key, error)) {
                fprintf(stderr, "zebrelo-sim: %s: %s\n", device_.udid().c_str(), error.c_str());
                return false;
            }
        }
        requests_.sessionStarted();
        return true;
    }

    int fd_;
    Device& device_;
    const std::atomic<bool>& closing_;
    LockdownRequests requests_;
    TlsChannel tls_;
};

}  // namespace

void runLockdown(int fd, Device& device, const std::atomic<bool>& closing) {
    LockdownConnection(fd, device, closing).run();
}

}  // namespace zsim
