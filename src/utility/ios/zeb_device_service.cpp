// Starting services. "com.apple.afc" is shared per device through a cache;
// one backup conversation runs per device at a time. No lock is held across
// a device call but the device's own AFC slot: a device that answers slowly
// or not at all holds up only its own callers.
#include "zeb_device.h"
#include "zeb_device_slots.h"

#include <poll.h>

#include <condition_variable>
#include <cstdio>
#include <set>

namespace zeb {

namespace {

constexpr int kStartAttempts = 5;
constexpr int32_t kPasswordProtected = static_cast<int32_t>(0xe800001a);
const char kAfcService[] = "com.apple.afc";
const char kBackupService[] = "com.apple.mobilebackup2";

DeviceSlots<ZEBDeviceService>& afcServices() {
    static auto* cache = new DeviceSlots<ZEBDeviceService>;
    return *cache;
}

// The devices whose backup service is out, each by its key.
struct BackupTurns {
    std::mutex lock;
    std::condition_variable released;
    std::set<std::string> busy;
};

BackupTurns& backupTurns() {
    static auto* turns = new BackupTurns;
    return *turns;
}

std::string busyKey(DeviceHandle handle) {
    char text[64];
    snprintf(text, sizeof text, "%s-%p", kBackupService, static_cast<void*>(handle));
    return text;
}

void releaseBackupTurn(DeviceHandle handle) {
    BackupTurns& turns = backupTurns();
    {
        std::lock_guard<std::mutex> hold(turns.lock);
        turns.busy.erase(busyKey(handle));
    }
    turns.released.notify_all();
}

ServicePtr startInner(DeviceHandle handle, int32_t& error, const char* name, CFDictionaryRef options, bool openAfc) {
    CFStringRef serviceName = api().__CFStringMakeConstantString(name);
    if (!serviceName) return nullptr;
    SessionPtr session = GetSession(handle, error);
    if (!session) session = RenewSession(handle, error);
    if (!session) return nullptr;

    AMDServiceConnectionRef connection = nullptr;
    int32_t result = -1;
    for (int attempt = 0; attempt < kStartAttempts && result != 0; ++attempt)
        result = api().AMDeviceSecureStartService(handle, serviceName, options, &connection);
    if (result != 0) {
        if (result == kPasswordProtected) error = kErrorServiceLocked;
        return nullptr;
    }

    AFCConnectionRef afc = nullptr;
    if (openAfc) {
        // AFC over an encrypted service connection is not used.
        if (api().AMDServiceConnectionGetSecureIOContext(connection) != nullptr) {
            api().AMDServiceConnectionInvalidate(connection);
            return nullptr;
        }
        api().AFCConnectionOpen(api().AMDServiceConnectionGetSocket(connection), 0, &afc);
    }
    return std::make_shared<ZEBDeviceService>(connection, afc, name, handle, std::move(session));
}

// The device's AFC service, shared by every command on it. One whose link
// broke (the device closed it, or went silent and the provider gave up on
// it) is left to the holders that met the break; the next user opens a
// fresh one.
ServicePtr sharedAfc(DeviceHandle handle, int32_t& error) {
    auto slot = afcServices().slotOf(handle);
    std::lock_guard<std::mutex> hold(slot->lock);
    if (auto live = slot->entry.lock())
        if (!live->linkBroken()) return live;
    ServicePtr service = startInner(handle, error, kAfcService, nullptr, true);
    slot->entry = service;
    return service;
}

}  // namespace

ServicePtr StartService(DeviceHandle handle, int32_t& error, const char* name, CFDictionaryRef options, bool openAfc) {
    if (std::string(name) == kAfcService) return sharedAfc(handle, error);
    if (std::string(name) != kBackupService) return startInner(handle, error, name, options, openAfc);
    // One backup conversation per device at a time: the next one waits until
    // this service is let go. The turn is taken before the start, which runs
    // with no lock held.
    BackupTurns& turns = backupTurns();
    const std::string key = busyKey(handle);
    {
        std::unique_lock<std::mutex> hold(turns.lock);
        turns.released.wait(hold, [&] { return turns.busy.count(key) == 0; });
        turns.busy.insert(key);
    }
    ServicePtr service = startInner(handle, error, name, options, openAfc);
    if (!service) releaseBackupTurn(handle);
    return service;
}

void ForgetServices(DeviceHandle handle) { afcServices().forget(handle); }

}  // namespace zeb

ZEBDeviceService::ZEBDeviceService(AMDServiceConnectionRef connection, AFCConnectionRef afc, std::string name,
                                   DeviceHandle handle, std::shared_ptr<ZEBDeviceSession> session)
    : connection(connection), afc(afc), name(std::move(name)), handle(handle), session(std::move(session)) {
    printf("ZEBDeviceService: %p name: %s\n", static_cast<void*>(this), this->name.c_str());
}

ZEBDeviceService::~ZEBDeviceService() {
    printf("~ZEBDeviceService: %p name: %s\n", static_cast<void*>(this), name.c_str());
    if (afc) zeb::api().AFCConnectionClose(afc);
    if (connection) zeb::api().AMDServiceConnectionInvalidate(connection);
    if (name == zeb::kBackupService) zeb::releaseBackupTurn(handle);
}

bool ZEBDeviceService::linkBroken() const {
    // Read without a word to the device: a socket whose peer hung up, or
    // that the provider shut down when it gave up on the link, can carry no
    // further exchange. Bytes waiting to be read are no sign of either.
    const int fd = connection ? zeb::api().AMDServiceConnectionGetSocket(connection) : -1;
    if (fd < 0) return true;
    pollfd state{fd, POLLRDHUP, 0};
    if (poll(&state, 1, 0) < 0) return false;
    return (state.revents & (POLLHUP | POLLRDHUP | POLLERR | POLLNVAL)) != 0;
}
