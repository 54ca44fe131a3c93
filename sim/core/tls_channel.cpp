#include "core/tls_channel.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include "core/socket_io.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace zsim {
namespace {
constexpr unsigned char kTlsAlertRecord = 0x15;
constexpr unsigned char kTlsApplicationData = 0x17;
constexpr int kCloseNotifyWaitMs = 1000;
constexpr int kHandshakeSeconds = 30;
}  // namespace

TlsChannel::~TlsChannel() { release(); }

void TlsChannel::release() {
    if (ssl_) SSL_free(ssl_);
    if (ctx_) SSL_CTX_free(ctx_);
    ssl_ = nullptr;
    ctx_ = nullptr;
}

namespace {

// Reading a device's key and building its TLS context costs more than the
// handshake's own signature: a row of devices starting sessions at once
// would spend most of the simulator's time there. One context per
// certificate and key, kept for the life of the process and shared by the
// sessions (a context is not changed once built, so threads may share it).
SSL_CTX* sharedContext(const std::string& certPem, const std::string& keyPem, std::string& error) {
    static std::mutex lock;
    static std::map<std::string, SSL_CTX*> contexts;
    constexpr size_t kMaxContexts = 1024;  // far above any row of devices
    const std::string identity = certPem + '\0' + keyPem;
    std::lock_guard<std::mutex> hold(lock);
    auto found = contexts.find(identity);
    if (found != contexts.end()) {
        SSL_CTX_up_ref(found->second);
        return found->second;
    }
    SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
    if (!ctx) {
        error = "cannot create TLS context";
        return nullptr;
    }
    // Hosts sign their certificates with SHA-1: only security level 0 lets
    // OpenSSL 3 talk to them at all.
    SSL_CTX_set_security_level(ctx, 0);
    SSL_CTX_set_cipher_list(ctx, "ALL:@SECLEVEL=0");
    // No session tickets: after StopSession the host reads plain bytes, and a
    // ticket left unread would be taken for the next message.
    SSL_CTX_set_num_tickets(ctx, 0);
    SSL_CTX_set_options(ctx, SSL_OP_NO_TICKET);

    BIO* cbio = BIO_new_mem_buf(certPem.data(), static_cast<int>(certPem.size()));
    X509* cert = cbio ? PEM_read_bio_X509(cbio, nullptr, nullptr, nullptr) : nullptr;
    BIO_free(cbio);
    BIO* kbio = BIO_new_mem_buf(keyPem.data(), static_cast<int>(keyPem.size()));
    EVP_PKEY* key = kbio ? PEM_read_bio_PrivateKey(kbio, nullptr, nullptr, nullptr) : nullptr;
    BIO_free(kbio);
    bool loaded = cert && key && SSL_CTX_use_certificate(ctx, cert) == 1 && SSL_CTX_use_PrivateKey(ctx, key) == 1;
    X509_free(cert);
    EVP_PKEY_free(key);
    if (!loaded) {
        error = "device certificate or key unusable";
        SSL_CTX_free(ctx);
        return nullptr;
    }
    if (contexts.size() < kMaxContexts) {
        SSL_CTX_up_ref(ctx);  // the table's own reference
        contexts.emplace(identity, ctx);
    }
    return ctx;
}

}  // namespace

bool TlsChannel::accept(int fd, const std::string& certPem, const std::string& keyPem, std::string& error) {
    release();
    ctx_ = sharedContext(certPem, keyPem, error);
    if (!ctx_) return false;
    ssl_ = SSL_new(ctx_);
    SSL_set_fd(ssl_, fd);
    // A host that starts a session but never shakes hands must not hold the
    // connection's thread for ever.
    timeval limit{kHandshakeSeconds, 0}, none{0, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    int accepted = SSL_accept(ssl_);
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &none, sizeof(none));
    if (accepted != 1) {
        unsigned long e = ERR_get_error();
        char buf[256];
        ERR_error_string_n(e, buf, sizeof(buf));
        error = std::string("TLS handshake failed: ") + buf;
        ERR_clear_error();
        release();
        return false;
    }
    return true;
}

ssize_t TlsChannel::read(void* buf, size_t n) {
    if (!ssl_) return -1;
    size_t got = 0;
    int rc = SSL_read_ex(ssl_, buf, n, &got);
    if (rc == 1) return static_cast<ssize_t>(got);
    ERR_clear_error();
    return SSL_get_error(ssl_, rc) == SSL_ERROR_ZERO_RETURN ? 0 : -1;
}

bool TlsChannel::write(const void* buf, size_t n) {
    if (!ssl_) return false;
    size_t put = 0;
    bool ok = SSL_write_ex(ssl_, buf, n, &put) == 1 && put == n;
    if (!ok) ERR_clear_error();
    return ok;
}

void TlsChannel::shutdown() {
    if (!ssl_) return;
    int fd = SSL_get_fd(ssl_);
    // The device sends no close_notify of its own: the host does not wait
    // for one, and an unread one would sit in front of the next plain
    // answer it reads.
    SSL_set_quiet_shutdown(ssl_, 1);
    release();
    // The host usually sends its close_notify, then goes on in plain text.
    // A plain lockdown message starts with the high byte of its length (0);
    // a TLS record with its content type (an alert, or application data
    // under TLS 1.3, which hides alerts in it). The host's records are
    // skipped by hand: OpenSSL would read past them into the plain message.
    int waitMs = kCloseNotifyWaitMs;
    for (;;) {
        pollfd pfd{fd, POLLIN, 0};
        unsigned char type = 0;
        if (poll(&pfd, 1, waitMs) != 1 || recv(fd, &type, 1, MSG_PEEK) != 1) return;
        if (type != kTlsAlertRecord && type != kTlsApplicationData) return;
        unsigned char head[5];
        if (!readFull(fd, head, sizeof(head))) return;
        std::vector<char> body((static_cast<size_t>(head[3]) << 8) | head[4]);
        if (!body.empty() && !readFull(fd, body.data(), body.size())) return;
        waitMs = 0;  // anything further must already be there
    }
}

}  // namespace zsim
