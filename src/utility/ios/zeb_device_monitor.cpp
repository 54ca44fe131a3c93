#include "zeb_device_monitor.h"

#include "zeb_client.h"
#include "zeb_settings.h"
#include "zeb_thread_pool.h"

#include <glog/logging.h>

#include <condition_variable>
#include <cstdio>

namespace {

using zeb::api;

const char* kLogWords[] = {"", "", "Disconnected: ", "kUnknown: ", "kTrustAuthorization: "};

}  // namespace

ZEBDeviceMonitor& ZEBDeviceMonitor::instance() {
    static auto* monitor = new ZEBDeviceMonitor;  // lives until the process ends
    return *monitor;
}

int32_t ZEBDeviceMonitor::AddCallback(ZEBDeviceCallback* callback) {
    int32_t key = callback_count++;
    callbacks[key] = callback;
    return key;
}

int32_t ZEBDeviceMonitor::Start() {
    if (started) return 0;
    // The start runs on a pool thread that then stays in the run loop: all
    // notifications arrive there.
    struct Handshake {
        std::mutex lock;
        std::condition_variable done;
        bool finished = false;
        int32_t result = 0;
    };
    auto handshake = std::make_shared<Handshake>();
    auto finish = [handshake](int32_t result) {
        std::lock_guard<std::mutex> hold(handshake->lock);
        handshake->result = result;
        handshake->finished = true;
        handshake->done.notify_all();
    };
    BASThreadPool::instance()->addTask([this, finish] {
        LOG(INFO) << "CMobileExportFun::GetInstance().Init() Before";
        if (!api().Init()) return finish(kStartBindingFailed);
        LOG(INFO) << "CMobileExportFun::GetInstance().Init() Finish";
        if (!zeb::usbmuxdReachable()) {
            LOG(INFO) << "usbmuxd";
            return finish(kStartUsbmuxdMissing);
        }
        if (api().AMDeviceNotificationSubscribe(&ZEBDeviceMonitor::onNotification, 0, 0, 0, &subscription) != 0)
            return finish(kStartSubscribeFailed);
        started = true;
        finish(0);
        LOG(INFO) << "RunLoop Before";
        api().CFRunLoopRun();
        LOG(INFO) << "RunLoop After";
    });
    std::unique_lock<std::mutex> hold(handshake->lock);
    handshake->done.wait(hold, [&] { return handshake->finished; });
    return handshake->result;
}

DevicePtr ZEBDeviceMonitor::FindByUdid(const std::string& udid) {
    for (const DevicePtr& device : devices)
        if (device->udid == udid) return device;
    return nullptr;
}

DevicePtr ZEBDeviceMonitor::FindByHandle(DeviceHandle handle) {
    for (const DevicePtr& device : devices)
        if (device->handle == handle) return device;
    return nullptr;
}

DevicePtr ZEBDeviceMonitor::RemoveByHandle(DeviceHandle handle) {
    for (auto it = devices.begin(); it != devices.end(); ++it) {
        if ((*it)->handle == handle) {
            DevicePtr device = *it;
            devices.erase(it);
            return device;
        }
    }
    return nullptr;
}

DevicePtr ZEBDeviceMonitor::Find(const std::string& udid) {
    if (udid.empty()) return nullptr;  // a device not read yet has no UDID
    std::lock_guard<std::mutex> hold(lock);
    return FindByUdid(udid);
}

void ZEBDeviceMonitor::notifyCallbacks(const DevicePtr& device, uint32_t message) {
    for (auto& [key, callback] : callbacks) callback->onDeviceEvent(device, message);
}

void ZEBDeviceMonitor::onNotification(AMDeviceNotificationInfo* info, void*) {
    if (!info) return;
    // A network device never exists for the system.
    if (api().AMDeviceGetInterfaceType(info->device) != kZebInterfaceUSB) return;
    instance().handle(info->device, info->message);
}

void ZEBDeviceMonitor::handle(DeviceHandle device, uint32_t message) {
    if (message >= 2 && message <= 4) {
        printf("%s%p\n", kLogWords[message], static_cast<void*>(device));
        fflush(stdout);
    }
    switch (message) {
        case kZebDeviceAttached: attached(device); break;
        case kZebDeviceDetached: disconnected(device); break;
        case kZebDeviceUnknownEvent: {
            std::lock_guard<std::mutex> hold(lock);
            if (DevicePtr found = FindByHandle(device)) notifyCallbacks(found, 3);
            break;
        }
        case kZebDeviceTrustAnswered: trustAnswered(device); break;
        default: break;
    }
}

void ZEBDeviceMonitor::attached(DeviceHandle handle) {
    const bool interfaceWorker = zeb::settings().runMode == 0;
    if (interfaceWorker) ZEBClient::instance()->sendStatusEvent(11, reinterpret_cast<int64_t>(handle));
    auto device = std::make_shared<ZEBDevice>(handle);
    {
        std::lock_guard<std::mutex> hold(lock);
        devices.push_back(device);
    }
    bringUp(device);
}

void ZEBDeviceMonitor::bringUp(const DevicePtr& device) {
    // Off the run loop: a device that pairs or answers slowly holds up only
    // itself, and a row of devices comes up together.
    BASThreadPool::instance()->addTask([this, device] {
        std::lock_guard<std::mutex> one(device->bringUp);
        if (device->state != kDeviceDisconnected) renewAndRead(device);
    });
}

void ZEBDeviceMonitor::trustAnswered(DeviceHandle handle) {
    DevicePtr device;
    {
        std::lock_guard<std::mutex> hold(lock);
        device = FindByHandle(handle);
    }
    if (!device) return;
    device->state = kDeviceTrustAnswered;
    bringUp(device);
}

void ZEBDeviceMonitor::renewAndRead(const DevicePtr& device) {
    int32_t error = 0;
    SessionPtr session = zeb::RenewSession(device->handle, error);
    if (error != 0) {
        // A device that asks for trust waits here (25) until its answer.
        if (zeb::settings().runMode == 0 && device->state != kDeviceDisconnected)
            ZEBClient::instance()->sendDeviceErrorEvent(*device, error);
        return;
    }
    if (device->state != kDeviceReady) readDevice(device);
}

int32_t ZEBDeviceMonitor::readDevice(const DevicePtr& device) {
    int32_t code = zeb::ReadDevice(*device);
    if (code != 0) {
        if (zeb::settings().runMode == 0 && device->state != kDeviceDisconnected)
            ZEBClient::instance()->sendDeviceErrorEvent(*device, code);
        return code;
    }
    // A device pulled out while it was read has had its gone event: no
    // ready after it.
    std::lock_guard<std::mutex> hold(lock);
    if (device->state == kDeviceDisconnected) return kErrorNoConnection;
    device->state = kDeviceReady;
    notifyCallbacks(device, 1);
    return 0;
}

void ZEBDeviceMonitor::disconnected(DeviceHandle handle) {
    zeb::ForgetDevice(handle);
    DevicePtr device;
    {
        std::lock_guard<std::mutex> hold(lock);
        device = RemoveByHandle(handle);
    }
    if (!device) return;
    // A bring-up still on the pool ends first (its link is gone), so that
    // the gone event comes after whatever it had to say.
    std::lock_guard<std::mutex> one(device->bringUp);
    std::unique_lock<std::mutex> hold(lock);
    device->state = kDeviceDisconnected;
    if (device->udid.empty()) {
        hold.unlock();
        if (zeb::settings().runMode == 0) ZEBClient::instance()->sendStatusEvent(8, reinterpret_cast<int64_t>(handle));
        return;
    }
    notifyCallbacks(device, 2);
}
