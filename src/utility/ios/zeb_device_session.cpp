// The lockdown link and sessions, each found again through a cache of weak
// references so that all commands on a device share them.
#include "zeb_device.h"

#include <map>

namespace zeb {

namespace {

struct ConnectionCache {
    std::mutex lock;
    std::map<DeviceHandle, std::weak_ptr<ZEBDeviceConnection>> entries;
};
struct SessionCache {
    std::mutex lock;
    std::map<DeviceHandle, std::weak_ptr<ZEBDeviceSession>> entries;
};

ConnectionCache& connectionCache() {
    static auto* cache = new ConnectionCache;
    return *cache;
}
SessionCache& sessionCache() {
    static auto* cache = new SessionCache;
    return *cache;
}

ConnectionPtr openConnection(DeviceHandle handle) {
    auto connection = std::make_shared<ZEBDeviceConnection>(handle);
    if (api().AMDeviceConnect(handle) != 0) {
        api().AMDeviceDisconnect(handle);
        if (api().AMDeviceConnect(handle) != 0) return nullptr;
    }
    connection->connection_id = api().AMDeviceGetConnectionID(handle);
    return connection;
}

SessionPtr createSession(DeviceHandle handle, int32_t& error) {
    ConnectionPtr connection = GetConnection(handle);
    if (!connection) connection = ReopenConnection(handle);
    if (!connection) {
        error = kErrorNoConnection;
        return nullptr;
    }
    if (api().AMDeviceIsPaired(handle) == 0) {
        // Raises the trust question on the device; its answer arrives as a
        // notification.
        api().AMDevicePair(handle);
        error = kErrorNotPaired;
        return nullptr;
    }
    if (api().AMDeviceValidatePairing(handle) != 0) {
        error = kErrorValidatePairing;
        return nullptr;
    }
    // The first session is always thrown away; the third call is the one
    // that counts.
    api().AMDeviceStartSession(handle);
    api().AMDeviceStopSession(handle);
    if (api().AMDeviceStartSession(handle) != 0) {
        error = kErrorStartSession;
        return nullptr;
    }
    error = 0;
    return std::make_shared<ZEBDeviceSession>(handle, std::move(connection));
}

}  // namespace

ConnectionPtr GetConnection(DeviceHandle handle) {
    ConnectionCache& cache = connectionCache();
    std::lock_guard<std::mutex> hold(cache.lock);
    if (auto live = cache.entries[handle].lock()) return live;
    ConnectionPtr connection = openConnection(handle);
    if (connection) cache.entries[handle] = connection;
    return connection;
}

ConnectionPtr ReopenConnection(DeviceHandle handle) {
    ConnectionCache& cache = connectionCache();
    std::lock_guard<std::mutex> hold(cache.lock);
    ConnectionPtr connection = openConnection(handle);
    if (connection) cache.entries[handle] = connection;
    return connection;
}

SessionPtr GetSession(DeviceHandle handle, int32_t& error) {
    SessionCache& cache = sessionCache();
    std::lock_guard<std::mutex> hold(cache.lock);
    if (auto live = cache.entries[handle].lock()) return live;
    SessionPtr session = createSession(handle, error);
    if (session) cache.entries[handle] = session;
    return session;
}

SessionPtr RenewSession(DeviceHandle handle, int32_t& error) {
    SessionCache& cache = sessionCache();
    std::lock_guard<std::mutex> hold(cache.lock);
    // A session a running command holds stays valid; the new one runs beside.
    cache.entries.erase(handle);
    SessionPtr session = createSession(handle, error);
    if (session) cache.entries[handle] = session;
    return session;
}

void ForgetDevice(DeviceHandle handle) {
    {
        std::lock_guard<std::mutex> hold(sessionCache().lock);
        sessionCache().entries.erase(handle);
    }
    std::lock_guard<std::mutex> hold(connectionCache().lock);
    connectionCache().entries.erase(handle);
}

}  // namespace zeb

ZEBDeviceConnection::~ZEBDeviceConnection() { zeb::api().AMDeviceDisconnect(handle); }

ZEBDeviceSession::~ZEBDeviceSession() { zeb::api().AMDeviceStopSession(handle); }
