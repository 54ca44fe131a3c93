#include "core/device_hub.h"

#include "core/usbmux_wire.h"

#include <arpa/inet.h>
#include <endian.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstring>

namespace zsim {
namespace fs = std::filesystem;

namespace {

// One port per device on a simulated hub.
uint32_t locationId(const Device& device) { return 0x14100000u + device.deviceId(); }

}  // namespace

DeviceHub::DeviceHub(fs::path stateRoot)
    : stateRoot_(std::move(stateRoot)), pairRecords_(stateRoot_ / "usbmuxd") {}

std::shared_ptr<Device> DeviceHub::attachNew(const Profile& profile, std::string& error) {
    PlistPtr plist = parsePlist(profile.plistText.data(), profile.plistText.size());
    plist_t values = dictDict(plist.get(), "Values");
    std::string base = dictString(values, "UniqueDeviceID").value_or("");
    if (!isSafeUdid(base)) {
        error = "profile " + profile.source + " has no usable UniqueDeviceID";
        return nullptr;
    }
    std::shared_ptr<Device> device;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        std::string udid;
        for (unsigned n = 0;; ++n) {
            udid = deriveUdid(base, n);
            bool taken = false;
            for (auto& e : devices_) taken = taken || e.device->udid() == udid;
            if (!taken) break;
        }
        plist_dict_set_item(values, "UniqueDeviceID", plist_new_string(udid.c_str()));
        device = std::make_shared<Device>(udid, std::move(plist), stateRoot_ / udid, profile.mediaDir);
        // Reserve the UDID before the slow part so that a parallel attach
        // of the same profile picks the next one.
        devices_.push_back({device, false});
    }
    bool loaded = device->load(error);
    std::lock_guard<std::mutex> lock(mutex_);
    if (!loaded || !attachLocked(device, error)) {
        for (auto it = devices_.begin(); it != devices_.end(); ++it) {
            if (it->device == device) {
                devices_.erase(it);
                break;
            }
        }
        return nullptr;
    }
    return device;
}

bool DeviceHub::attachLocked(const std::shared_ptr<Device>& device, std::string& error) {
    for (auto& e : devices_) {
        if (e.device != device) continue;
        if (device->isNetwork()) {
            auto endpoint = NetworkEndpoint::open(device, error);
            if (!endpoint) return false;
            endpoints_[device->udid()] = endpoint;
        }
        e.attached = true;
        // usbmuxd numbers every arrival anew, as a replugged phone gets a new id.
        device->setDeviceId(nextDeviceId_++);
        PlistPtr message = attachedRecord(*device);
        broadcast(message.get(), binaryAttachedPacket(*device));
        return true;
    }
    error = "unknown device";
    return false;
}

bool DeviceHub::reattach(const std::string& udid, std::string& error) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& e : devices_) {
        if (e.device->udid() != udid) continue;
        if (e.attached) {
            error = "already attached";
            return false;
        }
        return attachLocked(e.device, error);
    }
    error = "unknown device";
    return false;
}

bool DeviceHub::detach(const std::string& udid) {
    std::shared_ptr<Device> gone;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto& e : devices_) {
            if (e.device->udid() == udid && e.attached) {
                e.attached = false;
                gone = e.device;
                if (auto it = endpoints_.find(udid); it != endpoints_.end()) {
                    it->second->close();
                    endpoints_.erase(it);
                }
                PlistPtr message = adopt(plist_new_dict());
                plist_dict_set_item(message.get(), "MessageType", plist_new_string("Detached"));
                plist_dict_set_item(message.get(), "DeviceID", plist_new_uint(gone->deviceId()));
                std::string binary;
                if (!gone->isNetwork()) {
                    uint32_t id = htole32(gone->deviceId());
                    binary = usbmuxPacket(UsbmuxProtocol::Binary, kUsbmuxDeviceRemove, 0,
                                          std::string(reinterpret_cast<const char*>(&id), sizeof(id)));
                }
                broadcast(message.get(), binary);
                break;
            }
        }
    }
    if (!gone) return false;
    gone->breakConnections();
    return true;
}

std::shared_ptr<Device> DeviceHub::find(const std::string& udid) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& e : devices_)
        if (e.device->udid() == udid) return e.device;
    return nullptr;
}

std::shared_ptr<Device> DeviceHub::attachedById(uint32_t deviceId) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& e : devices_)
        if (e.attached && e.device->deviceId() == deviceId) return e.device;
    return nullptr;
}

std::vector<std::shared_ptr<Device>> DeviceHub::attachedDevices() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::shared_ptr<Device>> out;
    for (auto& e : devices_)
        if (e.attached) out.push_back(e.device);
    return out;
}

std::vector<DeviceHub::Entry> DeviceHub::allDevices() {
    std::lock_guard<std::mutex> lock(mutex_);
    return devices_;
}

std::string DeviceHub::binaryAttachedPacket(Device& device) {
    if (device.isNetwork()) return {};
    return usbmuxPacket(UsbmuxProtocol::Binary, kUsbmuxDeviceAdd, 0,
                        usbmuxDeviceRecord(device.deviceId(), device.productId(), device.udid(), locationId(device)));
}

PlistPtr DeviceHub::attachedRecord(Device& device) {
    plist_t props = plist_new_dict();
    plist_dict_set_item(props, "DeviceID", plist_new_uint(device.deviceId()));
    plist_dict_set_item(props, "SerialNumber", plist_new_string(device.udid().c_str()));
    if (device.isNetwork()) {
        plist_dict_set_item(props, "ConnectionType", plist_new_string("Network"));
        // The device's address as a BSD sockaddr_in: length, family, port, address.
        unsigned char sa[16] = {16, 2};
        in_addr addr{};
        inet_pton(AF_INET, device.networkAddress().c_str(), &addr);
        memcpy(sa + 4, &addr, 4);
        plist_dict_set_item(props, "NetworkAddress", plist_new_data(reinterpret_cast<char*>(sa), sizeof(sa)));
        std::string wifi = dictString(dictDict(device.profile(), "Values"), "WiFiAddress").value_or("00:00:00:00:00:00");
        std::string service = wifi + "@fe80::" + wifi.substr(wifi.size() > 5 ? wifi.size() - 5 : 0) +
                              "._apple-mobdev2._tcp.local.";
        plist_dict_set_item(props, "EscapedFullServiceName", plist_new_string(service.c_str()));
        plist_dict_set_item(props, "InterfaceIndex",
                            plist_new_uint(dictUInt(dictDict(device.profile(), "Network"), "InterfaceIndex").value_or(3)));
    } else {
        plist_dict_set_item(props, "ConnectionType", plist_new_string("USB"));
        plist_dict_set_item(props, "ConnectionSpeed",
                            plist_new_uint(dictUInt(dictDict(device.profile(), "USB"), "ConnectionSpeed").value_or(480000000)));
        plist_dict_set_item(props, "ProductID", plist_new_uint(device.productId()));
        plist_dict_set_item(props, "LocationID", plist_new_uint(locationId(device)));
        plist_dict_set_item(props, "USBSerialNumber", plist_new_string(device.udid().c_str()));
    }
    PlistPtr record = adopt(plist_new_dict());
    plist_dict_set_item(record.get(), "MessageType", plist_new_string("Attached"));
    plist_dict_set_item(record.get(), "DeviceID", plist_new_uint(device.deviceId()));
    plist_dict_set_item(record.get(), "Properties", props);
    return record;
}

void DeviceHub::addListener(int fd, UsbmuxProtocol protocol) {
    // A listener that stops reading must not hold up everyone else.
    timeval timeout{2, 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& e : devices_) {
        if (!e.attached) continue;
        if (protocol == UsbmuxProtocol::Plist) {
            PlistPtr record = attachedRecord(*e.device);
            sendUsbmuxPlist(fd, 0, record.get());
        } else if (std::string packet = binaryAttachedPacket(*e.device); !packet.empty()) {
            sendUsbmuxPacket(fd, packet);
        }
    }
    listeners_[fd] = protocol;
}

void DeviceHub::removeListener(int fd) {
    std::lock_guard<std::mutex> lock(mutex_);
    listeners_.erase(fd);
}

void DeviceHub::notifyPaired(uint32_t deviceId) {
    std::lock_guard<std::mutex> lock(mutex_);
    PlistPtr message = adopt(plist_new_dict());
    plist_dict_set_item(message.get(), "MessageType", plist_new_string("Paired"));
    plist_dict_set_item(message.get(), "DeviceID", plist_new_uint(deviceId));
    // The binary protocol has no word for it.
    broadcast(message.get(), {});
}

void DeviceHub::broadcast(plist_t message, const std::string& binaryPacket) {
    const std::string plistPacket = usbmuxPlistPacket(0, message);
    for (auto it = listeners_.begin(); it != listeners_.end();) {
        const auto& [fd, protocol] = *it;
        const std::string& packet = protocol == UsbmuxProtocol::Plist ? plistPacket : binaryPacket;
        if (packet.empty() || sendUsbmuxPacket(fd, packet)) {
            ++it;
        } else {
            shutdown(fd, SHUT_RDWR);  // its thread sees the end and cleans up
            it = listeners_.erase(it);
        }
    }
}

}  // namespace zsim
