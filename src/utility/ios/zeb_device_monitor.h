// ZEBDeviceMonitor: which devices are attached. Everything after the start
// is driven by device notifications, on the one thread that runs the run
// loop: no timer, no polling.
#pragma once

#include "zeb_device.h"

#include <list>
#include <map>
#include <mutex>

class ZEBDeviceCallback {
public:
    virtual ~ZEBDeviceCallback() = default;
    // message 1: ready, 2: gone, 3: unknown event.
    virtual void onDeviceEvent(const DevicePtr& device, uint32_t message) = 0;
};

enum MonitorStartError : int32_t {
    kStartBindingFailed = 9,
    kStartSubscribeFailed = 11,
    kStartUsbmuxdMissing = 14,
};

class ZEBDeviceMonitor {
public:
    static ZEBDeviceMonitor& instance();

    // 0, or the code of the step that failed. Callers hold `lock`. A later
    // call after a success answers 0 at once; after a failure it starts over.
    int32_t Start();

    // Both finders want `lock` held.
    DevicePtr FindByUdid(const std::string& udid);
    DevicePtr FindByHandle(DeviceHandle handle);
    DevicePtr RemoveByHandle(DeviceHandle handle);
    // The device by UDID, taking `lock` for the look-up.
    DevicePtr Find(const std::string& udid);

    // Registers a callback under the next key; `lock` held by the caller.
    int32_t AddCallback(ZEBDeviceCallback* callback);

    // Reads a device and, on success, makes it ready and tells the
    // callbacks; a failure goes to the parent as the device error event.
    int32_t readDevice(const DevicePtr& device);

    std::mutex lock;

private:
    ZEBDeviceMonitor() = default;
    static void onNotification(AMDeviceNotificationInfo* info, void* context);
    void handle(DeviceHandle handle, uint32_t message);
    void attached(DeviceHandle handle);
    void disconnected(DeviceHandle handle);
    void trustAnswered(DeviceHandle handle);
    void renewAndRead(const DevicePtr& device);
    // renewAndRead on the pool, one at a time per device.
    void bringUp(const DevicePtr& device);
    void notifyCallbacks(const DevicePtr& device, uint32_t message);  // `lock` held

    std::list<DevicePtr> devices;
    int32_t callback_count = 0;
    std::map<int32_t, ZEBDeviceCallback*> callbacks;
    bool started = false;
    AMDeviceNotificationRef subscription = nullptr;
};

namespace zeb {
// True when the usbmuxd socket (USBMUXD_SOCKET_ADDRESS, UNIX:/path or
// host:port, else /var/run/usbmuxd) takes a connection.
bool usbmuxdReachable();
}  // namespace zeb
