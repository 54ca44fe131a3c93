// One simulated device: its values, its pairing memory, its media tree, the
// service ports it has handed out and the connections that are open to it.
#pragma once

#include "core/plist_util.h"
#include "service.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace zsim {

// How the device answers a host that asks to pair.
enum class TrustMode {
    Trusted,    // the user has accepted every host in advance
    Untrusted,  // each new host gets the trust dialog
    Locked,     // a passcode is set and the device is locked
};

// What the user did with the trust dialog shown for the last Pair.
enum class DialogState { None, Pending, Accepted, Refused };

// Result of a Pair request: empty error means success.
struct PairOutcome {
    std::string error;
    std::vector<char> escrowBag;
};

class Device {
public:
    // `profile` is adopted; `stateDir` is this device's own folder.
    Device(std::string udid, PlistPtr profile, std::filesystem::path stateDir,
           std::filesystem::path profileMedia);

    const std::string& udid() const { return udid_; }
    uint32_t deviceId() const { return deviceId_; }
    void setDeviceId(uint32_t id) { deviceId_ = id; }
    bool isNetwork() const;
    bool isJailbroken() const;
    // False for a device that answers a domain only key by key.
    bool givesWholeDomains() const;
    uint32_t productId() const;
    // The IPv4 address a network device is reached at (its own loopback
    // address, given by its NetworkEndpoint).
    std::string networkAddress() const;
    void setNetworkAddress(const std::string& address);
    std::string trustStateName();
    std::string deviceName();

    // Prepares the state folder: persisted memory and media tree.
    bool load(std::string& error);

    // Values. An empty domain is the default domain. On failure the
    // returned pointer is null and `error` holds lockdown's error text.
    PlistPtr getValue(const std::string& domain, const std::string& key, bool inSession,
                      std::string& error);
    bool setValue(const std::string& domain, const std::string& key, plist_t value, std::string& error);
    bool removeValue(const std::string& domain, const std::string& key, std::string& error);

    // Identity.
    std::string privateKeyPem();
    std::string publicKeyPem();
    // The certificate to present in a session with this host.
    std::string certificateFor(const std::string& hostId);

    // Pairing.
    PairOutcome pair(plist_t pairRecord);
    bool knowsHost(const std::string& hostId);
    bool unpair(const std::string& hostId);
    void answerDialog(bool trust);

    // Services: StartService opens a port; the first Connect to it takes it.
    uint16_t openServicePort(const std::string& service);
    std::optional<std::string> takeServicePort(uint16_t port);
    // Called with each newly opened port: a network device must listen on it.
    void setServicePortHook(std::function<void(uint16_t)> hook);

    // Connections currently open to this device, so that "break" and detach
    // can close them. Each gets its own closing flag.
    std::shared_ptr<std::atomic<bool>> trackConnection(int fd);
    void untrackConnection(int fd);
    void breakConnections();
    size_t openConnections();

    // Services the control channel made StartService refuse.
    void setServiceRefused(const std::string& service, bool refused);
    bool isServiceRefused(const std::string& service);

    std::atomic<bool> stalled{false};
    ServiceContext serviceContext(const std::atomic<bool>* closing);
    plist_t profile() const { return profile_.get(); }

private:
    plist_t domainValues(const std::string& domain);
    // com.apple.disk_usage values that follow a media partition with a size.
    PlistPtr partitionUsage(const std::string& domain, const std::string& key);
    PlistPtr dynamicValue(const std::string& key);
    void saveMemory();  // caller holds mutex_
    void ensureKey();   // caller holds mutex_

    std::string udid_;
    std::atomic<uint32_t> deviceId_{0};
    PlistPtr profile_;
    std::filesystem::path stateDir_;
    std::filesystem::path profileMedia_;
    std::filesystem::path mediaRoot_;
    std::filesystem::path systemRoot_;

    mutable std::mutex mutex_;
    // Persisted in <stateDir>/device.plist: PrivateKey, TrustedHosts, Overrides.
    PlistPtr memory_;
    TrustMode trust_ = TrustMode::Trusted;
    DialogState dialog_ = DialogState::None;

    std::map<uint16_t, std::string> openPorts_;
    std::function<void(uint16_t)> portHook_;
    std::string networkAddress_;
    uint16_t nextPort_ = 0;
    std::map<int, std::shared_ptr<std::atomic<bool>>> connections_;
    std::set<std::string> refusedServices_;
};

}  // namespace zsim
