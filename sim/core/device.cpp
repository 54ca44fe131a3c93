#include "core/device.h"

#include "core/device_keys.h"
#include "core/media_tree.h"

#include <sys/socket.h>

#include <functional>
#include <system_error>

namespace zsim {
namespace fs = std::filesystem;

namespace {

constexpr uint16_t kFirstServicePort = 49152;
constexpr uint16_t kLastServicePort = 65000;
constexpr uint16_t kLockdownPort = 62078;
// Started services no host has connected to yet. A host that keeps starting
// services without connecting would otherwise use up the port range.
constexpr size_t kMaxUnclaimedPorts = 512;

TrustMode parseTrust(const std::string& text) {
    if (text == "untrusted") return TrustMode::Untrusted;
    if (text == "password" || text == "locked") return TrustMode::Locked;
    return TrustMode::Trusted;
}

}  // namespace

Device::Device(std::string udid, PlistPtr profile, fs::path stateDir, fs::path profileMedia)
    : udid_(std::move(udid)),
      profile_(std::move(profile)),
      stateDir_(std::move(stateDir)),
      profileMedia_(std::move(profileMedia)) {
    trust_ = parseTrust(dictString(profile_.get(), "Trust").value_or("trusted"));
    // Spread the devices' service ports apart, as separate phones would be.
    nextPort_ = static_cast<uint16_t>(kFirstServicePort + std::hash<std::string>{}(udid_) % 4000);
}

bool Device::isNetwork() const { return dictString(profile_.get(), "Connection").value_or("USB") == "Network"; }

bool Device::isJailbroken() const { return dictBool(profile_.get(), "Jailbroken").value_or(false); }

bool Device::givesWholeDomains() const { return dictBool(profile_.get(), "WholeDomainReads").value_or(true); }

uint32_t Device::productId() const {
    return static_cast<uint32_t>(dictUInt(dictDict(profile_.get(), "USB"), "ProductID").value_or(0x12a8));
}

std::string Device::networkAddress() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return networkAddress_;
}

void Device::setNetworkAddress(const std::string& address) {
    std::lock_guard<std::mutex> lock(mutex_);
    networkAddress_ = address;
}

void Device::setServicePortHook(std::function<void(uint16_t)> hook) {
    std::lock_guard<std::mutex> lock(mutex_);
    portHook_ = std::move(hook);
}

bool Device::load(std::string& error) {
    std::error_code ec;
    fs::create_directories(stateDir_, ec);
    if (ec) {
        error = "cannot create " + stateDir_.string() + ": " + ec.message();
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        memory_ = readPlistFile(stateDir_ / "device.plist");
        if (!memory_ || plist_get_node_type(memory_.get()) != PLIST_DICT) memory_ = adopt(plist_new_dict());
        if (!dictDict(memory_.get(), "TrustedHosts"))
            plist_dict_set_item(memory_.get(), "TrustedHosts", plist_new_dict());
        if (!dictDict(memory_.get(), "Overrides")) plist_dict_set_item(memory_.get(), "Overrides", plist_new_dict());
        if (auto mode = dictString(memory_.get(), "TrustMode")) trust_ = parseTrust(*mode);
    }
    if (isJailbroken()) {
        systemRoot_ = stateDir_ / "root";
        mediaRoot_ = systemRoot_ / "private/var/mobile/Media";
        if (!fs::exists(systemRoot_ / "System") && !buildSystemTree(systemRoot_, profile_.get(), error)) return false;
    } else {
        mediaRoot_ = stateDir_ / "media";
    }
    // Build the media partition once; later starts with the same state folder
    // find the host's earlier writes untouched.
    if (!fs::exists(stateDir_ / "media.ready")) {
        if (!buildMediaTree(mediaRoot_, profileMedia_, profile_.get(), error)) return false;
        FILE* marker = fopen((stateDir_ / "media.ready").c_str(), "w");
        if (marker) fclose(marker);
    }
    return true;
}

void Device::saveMemory() {
    writePlistFile(stateDir_ / "device.plist", memory_.get());
}

void Device::ensureKey() {
    if (dictString(memory_.get(), "PrivateKey")) return;
    // Generated on first need so that attaching many devices stays quick.
    std::string key = generatePrivateKeyPem(2048);
    plist_dict_set_item(memory_.get(), "PrivateKey", plist_new_string(key.c_str()));
    saveMemory();
}

std::string Device::privateKeyPem() {
    std::lock_guard<std::mutex> lock(mutex_);
    ensureKey();
    return dictString(memory_.get(), "PrivateKey").value_or("");
}

std::string Device::publicKeyPem() { return publicKeyPkcs1Pem(privateKeyPem()); }

std::string Device::trustStateName() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (dialog_ == DialogState::Pending) return "pending";
    switch (trust_) {
        case TrustMode::Trusted: return "trusted";
        case TrustMode::Locked: return "locked";
        case TrustMode::Untrusted: break;
    }
    plist_t hosts = dictDict(memory_.get(), "TrustedHosts");
    return (hosts && plist_dict_get_size(hosts) > 0) ? "paired" : "untrusted";
}

uint16_t Device::openServicePort(const std::string& service) {
    uint16_t port = 0;
    std::function<void(uint16_t)> hook;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (openPorts_.size() >= kMaxUnclaimedPorts) {
            // Ports go out in a cycle: the next open one is the oldest.
            auto oldest = openPorts_.lower_bound(nextPort_);
            openPorts_.erase(oldest != openPorts_.end() ? oldest : openPorts_.begin());
        }
        do {
            port = nextPort_++;
            if (nextPort_ > kLastServicePort) nextPort_ = kFirstServicePort;
        } while (port == kLockdownPort || openPorts_.count(port));
        openPorts_[port] = service;
        hook = portHook_;
    }
    if (hook) hook(port);
    return port;
}

std::optional<std::string> Device::takeServicePort(uint16_t port) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = openPorts_.find(port);
    if (it == openPorts_.end()) return std::nullopt;
    std::string service = it->second;
    openPorts_.erase(it);
    return service;
}

std::shared_ptr<std::atomic<bool>> Device::trackConnection(int fd) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto flag = std::make_shared<std::atomic<bool>>(false);
    connections_[fd] = flag;
    return flag;
}

void Device::untrackConnection(int fd) {
    std::lock_guard<std::mutex> lock(mutex_);
    connections_.erase(fd);
}

void Device::breakConnections() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& [fd, closing] : connections_) {
        closing->store(true);
        // Shutting down (not closing) the socket wakes a blocked reader while
        // its owner thread still owns the descriptor.
        shutdown(fd, SHUT_RDWR);
    }
    openPorts_.clear();
}

size_t Device::openConnections() {
    std::lock_guard<std::mutex> lock(mutex_);
    return connections_.size();
}

void Device::setServiceRefused(const std::string& service, bool refused) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (refused)
        refusedServices_.insert(service);
    else
        refusedServices_.erase(service);
}

bool Device::isServiceRefused(const std::string& service) {
    std::lock_guard<std::mutex> lock(mutex_);
    return refusedServices_.count(service) != 0;
}

ServiceContext Device::serviceContext(const std::atomic<bool>* closing) {
    ServiceContext ctx;
    ctx.udid = udid_;
    ctx.mediaRoot = mediaRoot_;
    ctx.systemRoot = systemRoot_;
    ctx.stateDir = stateDir_;
    ctx.profile = profile_.get();
    ctx.stalled = &stalled;
    ctx.closing = closing;
    ctx.setValue = [this](const std::string& domain, const std::string& key, plist_t value) {
        std::string error;
        return setValue(domain, key, value, error);
    };
    return ctx;
}

}  // namespace zsim
