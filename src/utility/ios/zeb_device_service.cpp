// Starting services. "com.apple.afc" is shared per device through a cache;
// every other start takes its turn under one lock.
#include "zeb_device.h"

#include <condition_variable>
#include <cstdio>
#include <map>
#include <set>

namespace zeb {

namespace {

constexpr int kStartAttempts = 5;
constexpr int32_t kPasswordProtected = static_cast<int32_t>(0xe800001a);
const char kAfcService[] = "com.apple.afc";
const char kBackupService[] = "com.apple.mobilebackup2";

struct ServiceRegistry {
    std::mutex lock;  // service_lock
    std::condition_variable released;
    std::map<DeviceHandle, std::weak_ptr<ZEBDeviceService>> afcServices;
    std::set<std::string> busy;
};

ServiceRegistry& registry() {
    static auto* services = new ServiceRegistry;
    return *services;
}

std::string busyKey(DeviceHandle handle) {
    char text[64];
    snprintf(text, sizeof text, "%s-%p", kBackupService, static_cast<void*>(handle));
    return text;
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

}  // namespace

ServicePtr StartService(DeviceHandle handle, int32_t& error, const char* name, CFDictionaryRef options, bool openAfc) {
    ServiceRegistry& services = registry();
    std::unique_lock<std::mutex> hold(services.lock);
    if (std::string(name) == kAfcService) {
        if (auto live = services.afcServices[handle].lock()) return live;
        ServicePtr service = startInner(handle, error, kAfcService, nullptr, true);
        if (service) services.afcServices[handle] = service;
        return service;
    }
    // One backup conversation per device at a time: the next one waits
    // until this service is let go. Other services only take turns.
    const bool isBackup = std::string(name) == kBackupService;
    const std::string key = busyKey(handle);
    if (isBackup) services.released.wait(hold, [&] { return services.busy.count(key) == 0; });
    ServicePtr service = startInner(handle, error, name, options, openAfc);
    if (service && isBackup) services.busy.insert(key);
    return service;
}

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
    if (name == zeb::kBackupService) {
        zeb::ServiceRegistry& services = zeb::registry();
        {
            std::lock_guard<std::mutex> hold(services.lock);
            services.busy.erase(zeb::busyKey(handle));
        }
        services.released.notify_all();
    }
}
