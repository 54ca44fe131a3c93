#include "zeb_device_registry.h"

#include <unordered_map>

namespace zebprov {

namespace {

struct Registry {
    std::mutex lock;
    uint64_t nextHandle = 0x1000;  // handles never look like small numbers or null
    std::unordered_map<uint64_t, std::shared_ptr<Device>> byHandle;
    std::unordered_map<uint32_t, std::shared_ptr<Device>> liveByMux;
};

Registry& TheRegistry() {
    static auto* registry = new Registry();  // outlives every thread
    return *registry;
}

}  // namespace

std::shared_ptr<Device> AttachDevice(uint32_t muxHandle, const std::string& udid, bool network) {
    auto& r = TheRegistry();
    std::lock_guard<std::mutex> hold(r.lock);
    auto live = r.liveByMux.find(muxHandle);
    if (live != r.liveByMux.end() && !live->second->gone && live->second->udid == udid) return live->second;
    auto device = std::make_shared<Device>();
    uint64_t id = r.nextHandle;
    r.nextHandle += 0x10;
    device->handle = reinterpret_cast<AMDeviceRef>(static_cast<uintptr_t>(id));
    device->udid = udid;
    device->muxHandle = muxHandle;
    device->network = network;
    r.byHandle[id] = device;
    r.liveByMux[muxHandle] = device;
    return device;
}

std::shared_ptr<Device> DetachDevice(uint32_t muxHandle) {
    auto& r = TheRegistry();
    std::lock_guard<std::mutex> hold(r.lock);
    auto live = r.liveByMux.find(muxHandle);
    if (live == r.liveByMux.end()) return nullptr;
    auto device = live->second;
    device->gone = true;
    return device;
}

std::shared_ptr<Device> FindDevice(AMDeviceRef handle) {
    auto& r = TheRegistry();
    std::lock_guard<std::mutex> hold(r.lock);
    auto found = r.byHandle.find(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(handle)));
    return found == r.byHandle.end() ? nullptr : found->second;
}

idevice_t OpenIdevice(const Device& device) {
    idevice_t out = nullptr;
    auto lookup = device.network ? IDEVICE_LOOKUP_NETWORK : IDEVICE_LOOKUP_USBMUX;
    if (idevice_new_with_options(&out, device.udid.c_str(), static_cast<idevice_options>(lookup)) !=
        IDEVICE_E_SUCCESS)
        return nullptr;
    return out;
}

}  // namespace zebprov
