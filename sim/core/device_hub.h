// Every device the simulator knows, which of them are attached, and the
// usbmuxd clients listening for attach, detach and paired notifications.
#pragma once

#include "core/device.h"
#include "core/network_endpoint.h"
#include "core/pair_records.h"
#include "core/profile.h"
#include "core/usbmux_wire.h"

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace zsim {

class DeviceHub {
public:
    explicit DeviceHub(std::filesystem::path stateRoot);

    // Makes a new device from a profile (its own UDID even when the profile
    // is already in use) and attaches it.
    std::shared_ptr<Device> attachNew(const Profile& profile, std::string& error);
    // Attaches again a device that was detached; its state is kept.
    bool reattach(const std::string& udid, std::string& error);
    bool detach(const std::string& udid);

    std::shared_ptr<Device> find(const std::string& udid);
    std::shared_ptr<Device> attachedById(uint32_t deviceId);
    std::vector<std::shared_ptr<Device>> attachedDevices();
    struct Entry {
        std::shared_ptr<Device> device;
        bool attached;
    };
    std::vector<Entry> allDevices();

    // A usbmuxd client that sent Listen: it gets an Attached message for each
    // present device now, and every change afterwards, in its own protocol.
    void addListener(int fd, UsbmuxProtocol protocol);
    void removeListener(int fd);
    void notifyPaired(uint32_t deviceId);

    PlistPtr attachedRecord(Device& device);
    // The binary protocol's DEVICE_ADD packet; empty for a network device,
    // which that protocol has no way to describe.
    std::string binaryAttachedPacket(Device& device);
    PairRecordStore& pairRecords() { return pairRecords_; }

private:
    // `binaryPacket` empty: the message has no binary form and binary
    // listeners are not told. Caller holds mutex_.
    void broadcast(plist_t message, const std::string& binaryPacket);
    bool attachLocked(const std::shared_ptr<Device>& device, std::string& error);

    std::filesystem::path stateRoot_;
    PairRecordStore pairRecords_;
    std::mutex mutex_;
    std::vector<Entry> devices_;
    std::map<int, UsbmuxProtocol> listeners_;
    std::map<std::string, std::shared_ptr<NetworkEndpoint>> endpoints_;
    uint32_t nextDeviceId_ = 1;
};

}  // namespace zsim
