// The device side of a lockdown TLS session over an already connected socket.
#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>

typedef struct ssl_st SSL;
typedef struct ssl_ctx_st SSL_CTX;

namespace zsim {

class TlsChannel {
public:
    TlsChannel() = default;
    ~TlsChannel();
    TlsChannel(const TlsChannel&) = delete;
    TlsChannel& operator=(const TlsChannel&) = delete;

    // Runs the server handshake with the device's certificate and key.
    bool accept(int fd, const std::string& certPem, const std::string& keyPem, std::string& error);
    bool active() const { return ssl_ != nullptr; }
    ssize_t read(void* buf, size_t n);
    bool write(const void* buf, size_t n);
    // Leaves TLS (StopSession): the host's close_notify is consumed and the
    // plain socket carries the conversation again.
    void shutdown();

private:
    void release();
    SSL_CTX* ctx_ = nullptr;
    SSL* ssl_ = nullptr;
};

}  // namespace zsim
