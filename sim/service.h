// The seam between the simulator's lockdown (which starts services) and the
// device services themselves. A service registers a handler under its name;
// when a host connects to the port that StartService handed out, lockdown
// runs that handler on the connection's own thread until it returns.
#pragma once

#include <plist/plist.h>

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/types.h>

namespace zsim {

// A connected service byte pipe (already past any TLS the service uses).
class ServiceStream {
public:
    virtual ~ServiceStream() = default;
    // Reads up to n bytes. 0 means the host closed the pipe, <0 an error.
    virtual ssize_t readSome(void* buf, size_t n) = 0;
    virtual bool writeAll(const void* buf, size_t n) = 0;

    // Reads exactly n bytes; false if the pipe ends first.
    bool readExact(void* buf, size_t n) {
        auto* p = static_cast<char*>(buf);
        while (n > 0) {
            ssize_t got = readSome(p, n);
            if (got <= 0) return false;
            p += got;
            n -= static_cast<size_t>(got);
        }
        return true;
    }
};

// What a service may know of the device it runs on.
struct ServiceContext {
    std::string udid;
    // Root of "com.apple.afc": the device's media partition (a writable
    // copy inside the state folder, so writes persist for its life).
    std::filesystem::path mediaRoot;
    // Root of "com.apple.afc2": the whole device tree; empty unless the
    // device is jailbroken.
    std::filesystem::path systemRoot;
    // The device's own folder in the state folder, for services that keep
    // device memory beyond the media partition (installed apps).
    std::filesystem::path stateDir;
    // The device's profile dictionary, read-only for services (its
    // "Behaviours" and "Metrics" keys are documented in sim/README.md).
    plist_t profile = nullptr;
    // Set by the control channel ("stall"): a service that sees it stops
    // answering, without closing, until it is cleared.
    const std::atomic<bool>* stalled = nullptr;
    // Set when the device is detached or "break" closes its connections:
    // a service returns as soon as it sees it.
    const std::atomic<bool>* closing = nullptr;
    // Sets a lockdown value as a host's SetValue does (a restore that takes
    // the backup's settings); empty where no device stands behind the
    // service, as in wire tests.
    std::function<bool(const std::string& domain, const std::string& key, plist_t value)> setValue;
};

using ServiceHandler = void (*)(ServiceStream&, const ServiceContext&);

// Registry filled by static registrars in each service's file.
void registerService(const char* name, ServiceHandler handler);
// Null when no service of that name is built in (lockdown answers
// "InvalidService").
ServiceHandler findService(const std::string& name);

struct ServiceRegistrar {
    ServiceRegistrar(const char* name, ServiceHandler handler) { registerService(name, handler); }
};

}  // namespace zsim

#define ZSIM_REGISTER_SERVICE(name, handler) \
    static ::zsim::ServiceRegistrar zsimRegistrar_##handler(name, handler)
