// The lockdown link and sessions, each found again through a cache of weak
// references so that all commands on a device share them.
#include "zeb_device.h"
#include "zeb_device_slots.h"

namespace zeb {

namespace {

using ConnectionCache = DeviceSlots<ZEBDeviceConnection>;
using SessionCache = DeviceSlots<ZEBDeviceSession>;

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
    // One session: the pairing check's, taken over here.
    if (api().AMDeviceStartSession(handle) != 0) {
        error = kErrorStartSession;
        return nullptr;
    }
    error = 0;
    return std::make_shared<ZEBDeviceSession>(handle, std::move(connection));
}

}  // namespace

ConnectionPtr GetConnection(DeviceHandle handle) {
    auto slot = connectionCache().slotOf(handle);
    std::lock_guard<std::mutex> hold(slot->lock);
    if (auto live = slot->entry.lock()) return live;
    ConnectionPtr connection = openConnection(handle);
    if (connection) slot->entry = connection;
    return connection;
}

ConnectionPtr ReopenConnection(DeviceHandle handle) {
    auto slot = connectionCache().slotOf(handle);
    std::lock_guard<std::mutex> hold(slot->lock);
    ConnectionPtr connection = openConnection(handle);
    if (connection) slot->entry = connection;
    return connection;
}

SessionPtr GetSession(DeviceHandle handle, int32_t& error) {
    auto slot = sessionCache().slotOf(handle);
    std::lock_guard<std::mutex> hold(slot->lock);
    if (auto live = slot->entry.lock()) return live;
    SessionPtr session = createSession(handle, error);
    if (session) slot->entry = session;
    return session;
}

SessionPtr RenewSession(DeviceHandle handle, int32_t& error) {
    auto slot = sessionCache().slotOf(handle);
    std::lock_guard<std::mutex> hold(slot->lock);
    // A session a running command holds stays valid; the new one runs beside.
    slot->entry.reset();
    SessionPtr session = createSession(handle, error);
    if (session) slot->entry = session;
    return session;
}

void ForgetDevice(DeviceHandle handle) {
    ForgetServices(handle);
    sessionCache().forget(handle);
    connectionCache().forget(handle);
}

}  // namespace zeb

ZEBDeviceConnection::~ZEBDeviceConnection() { zeb::api().AMDeviceDisconnect(handle); }

ZEBDeviceSession::~ZEBDeviceSession() { zeb::api().AMDeviceStopSession(handle); }
