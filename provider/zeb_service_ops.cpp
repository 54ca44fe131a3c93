// Starting device services and talking on their connections.
//
// A service connection owns its own usbmuxd link, independent of the
// lockdown link, so it keeps working after the session that started it ends.
// AMDServiceConnectionInvalidate closes and frees it.
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <mutex>

#include "zeb_cf_object.h"
#include "zeb_device_registry.h"
#include "zeb_exports.h"
#include "zeb_handshake_blocking.h"
#include "zeb_sigpipe_guard.h"
#include "zeb_lockdown_errors.h"
#include "zeb_lockdown_link.h"
#include "zeb_socket_io.h"

using namespace zebprov;

namespace {

// Device services may pause for long (a backup preparing), so the silence
// allowed on a service connection is generous.
constexpr int kServiceSilenceMs = 300000;

struct ServiceConnection {
    std::shared_ptr<Device> device;
    idevice_t idevice = nullptr;
    idevice_connection_t link = nullptr;
    int fd = -1;
    bool secure = false;
    std::mutex sendLock;
    std::mutex receiveLock;
    int secureContextMarker = 0;  // its address is the "secure context"
};

ServiceConnection* FromRef(AMDServiceConnectionRef ref) { return reinterpret_cast<ServiceConnection*>(ref); }

bool WantsEscrowBag(CFDictionaryRef options) {
    zebcf::Dictionary* d = zebcf::AsDictionary(options);
    if (!d) return false;
    zebcf::String key("UnlockEscrowBag");
    std::lock_guard<std::mutex> hold(d->lock);
    CFTypeRef value = d->FindLocked(&key);
    return value == zebcf::TrueValue();
}

}  // namespace

extern "C" {

int32_t AMDeviceSecureStartService(AMDeviceRef handle, CFStringRef name, CFDictionaryRef options,
                                   AMDServiceConnectionRef* out) {
    SigpipeGuard noSigpipe;
    if (out) *out = nullptr;
    auto device = FindDevice(handle);
    zebcf::String* serviceName = zebcf::AsString(name);
    if (!device || !serviceName || !out) return kZebAMDBadArgument;

    lockdownd_service_descriptor_t descriptor = nullptr;
    {
        std::lock_guard<std::mutex> hold(device->lock);
        if (device->gone) return kZebAMDDeviceGone;
        ReplaceHungUpLinkLocked(*device);
        if (!device->lockdown) return kZebAMDNotConnected;
        if (device->sessionCount == 0) return kZebAMDSessionInactive;
        const bool escrowBag = WantsEscrowBag(options);
        lockdownd_error_t err = BoundedExchange(*device, [&](lockdownd_client_t link) {
            return escrowBag ? lockdownd_start_service_with_escrow_bag(link, serviceName->utf8.c_str(), &descriptor)
                             : lockdownd_start_service(link, serviceName->utf8.c_str(), &descriptor);
        });
        if (err != LOCKDOWN_E_SUCCESS) {
            if (descriptor) lockdownd_service_descriptor_free(descriptor);
            return LockdownToResult(err);
        }
    }

    auto connection = std::make_unique<ServiceConnection>();
    connection->device = device;
    connection->secure = descriptor->ssl_enabled != 0;
    uint16_t port = descriptor->port;
    lockdownd_service_descriptor_free(descriptor);

    connection->idevice = OpenIdevice(*device);
    if (!connection->idevice) return kZebAMDNotConnected;
    if (idevice_connect(connection->idevice, port, &connection->link) != IDEVICE_E_SUCCESS) {
        idevice_free(connection->idevice);
        return kZebAMDNotConnected;
    }
    bool handshakeFailed = false;
    if (connection->secure) {
        LinkDeadline deadline(LinkSocket(connection->link), LockdownTimeoutMs());
        {
            BlockingDuringHandshake noHandshakeSleeps(connection->link);
            handshakeFailed = idevice_connection_enable_ssl(connection->link) != IDEVICE_E_SUCCESS;
        }
        if (deadline.Disarm()) handshakeFailed = true;
    }
    if (handshakeFailed) {
        idevice_disconnect(connection->link);
        idevice_free(connection->idevice);
        return kZebAMDUndefinedError;
    }
    idevice_connection_get_fd(connection->link, &connection->fd);
    *out = reinterpret_cast<AMDServiceConnectionRef>(connection.release());
    return kZebAMDSuccess;
}

int32_t AMDeviceStartService(AMDeviceRef, CFStringRef, AMDServiceConnectionRef*, void*) {
    return kZebAMDUnsupported;  // the secure start stands in its place
}

ssize_t AMDServiceConnectionSend(AMDServiceConnectionRef ref, const void* buffer, size_t length) {
    SigpipeGuard noSigpipe;
    ServiceConnection* c = FromRef(ref);
    if (!c || !c->link || (!buffer && length)) return -1;
    std::lock_guard<std::mutex> hold(c->sendLock);
    if (c->device->gone) return -1;
    if (!c->secure) {
        return SendAll(c->fd, buffer, length, IoTimeoutMs(kServiceSilenceMs), &c->device->gone)
                   ? static_cast<ssize_t>(length)
                   : -1;
    }
    // The library's encrypted send retries without end while the socket is
    // full; a device that reads nothing for too long has its link cut.
    const int silenceMs = IoTimeoutMs(kServiceSilenceMs);
    size_t total = 0;
    while (total < length) {
        uint32_t sent = 0;
        uint32_t piece = static_cast<uint32_t>(std::min<size_t>(length - total, 1u << 20));
        LinkDeadline deadline(c->fd, silenceMs);
        idevice_error_t err = idevice_connection_send(c->link, static_cast<const char*>(buffer) + total, piece, &sent);
        if (deadline.Disarm() || err != IDEVICE_E_SUCCESS || sent == 0) return -1;
        total += sent;
    }
    return static_cast<ssize_t>(total);
}

ssize_t AMDServiceConnectionReceive(AMDServiceConnectionRef ref, void* buffer, size_t length) {
    SigpipeGuard noSigpipe;
    ServiceConnection* c = FromRef(ref);
    if (!c || !c->link || !buffer) return -1;
    std::lock_guard<std::mutex> hold(c->receiveLock);
    if (c->device->gone) return -1;
    int silenceMs = IoTimeoutMs(kServiceSilenceMs);
    if (!c->secure) return ReceiveSome(c->fd, buffer, length, silenceMs, &c->device->gone);
    uint32_t got = 0;
    uint32_t want = static_cast<uint32_t>(std::min<size_t>(length, UINT32_MAX));
    idevice_error_t err =
        idevice_connection_receive_timeout(c->link, static_cast<char*>(buffer), want, &got, silenceMs);
    if (got > 0) return got;
    return err == IDEVICE_E_SUCCESS ? 0 : -1;
}

int AMDServiceConnectionGetSocket(AMDServiceConnectionRef ref) {
    ServiceConnection* c = FromRef(ref);
    return c ? c->fd : -1;
}

void* AMDServiceConnectionGetSecureIOContext(AMDServiceConnectionRef ref) {
    ServiceConnection* c = FromRef(ref);
    return c && c->secure ? &c->secureContextMarker : nullptr;
}

void AMDServiceConnectionInvalidate(AMDServiceConnectionRef ref) {
    SigpipeGuard noSigpipe;
    ServiceConnection* c = FromRef(ref);
    if (!c) return;
    // Wake a thread blocked in a receive before waiting for it.
    if (c->fd >= 0) shutdown(c->fd, SHUT_RDWR);
    {
        // Wait out a sender or receiver still inside the connection.
        std::lock_guard<std::mutex> sending(c->sendLock);
        std::lock_guard<std::mutex> receiving(c->receiveLock);
        if (c->link) idevice_disconnect(c->link);
        if (c->idevice) idevice_free(c->idevice);
        c->link = nullptr;
        c->idevice = nullptr;
    }
    delete c;
}

}  // extern "C"
