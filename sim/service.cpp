#include "service.h"

#include <map>
#include <mutex>

namespace zsim {
namespace {

// Function-local statics: registrars in other files run during static
// initialisation, before any namespace-scope map here would be built.
std::map<std::string, ServiceHandler>& registry() {
    static std::map<std::string, ServiceHandler> services;
    return services;
}

std::mutex& registryMutex() {
    static std::mutex m;
    return m;
}

}  // namespace

void registerService(const char* name, ServiceHandler handler) {
    std::lock_guard<std::mutex> lock(registryMutex());
    registry()[name] = handler;
}

ServiceHandler findService(const std::string& name) {
    std::lock_guard<std::mutex> lock(registryMutex());
    auto it = registry().find(name);
    return it == registry().end() ? nullptr : it->second;
}

}  // namespace zsim
