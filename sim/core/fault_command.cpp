#include "core/fault_command.h"

#include "core/device_hub.h"
#include "core/fault_points.h"

#include <cerrno>
#include <cstdlib>
#include <functional>

namespace zsim {
namespace {

constexpr char kUsage[] = "error: fault needs UDID, clear, wait MS, or POINT [after N] stall|break|detach";

// What the device does when the fault fires. The device is held by the
// action, so that a fault armed on a device outlives its detach.
std::function<void()> faultAction(const std::string& word, const std::shared_ptr<Device>& device, DeviceHub& hub) {
    if (word == "stall") return [device] { device->stalled.store(true); };
    if (word == "break") return [device] { device->breakConnections(); };
    if (word == "detach") return [device, &hub] { hub.detach(device->udid()); };
    return nullptr;
}

bool parseCount(const std::string& text, uint64_t& count) {
    if (text.empty() || text[0] < '0' || text[0] > '9') return false;
    char* end = nullptr;
    errno = 0;
    count = std::strtoull(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0';
}

}  // namespace

std::string runFaultCommand(const std::vector<std::string>& args, const std::shared_ptr<Device>& device,
                            DeviceHub& hub) {
    const std::string& udid = device->udid();
    if (args.size() == 2) return "ok " + std::to_string(pendingFaults(udid));
    if (args.size() == 3 && args[2] == "clear") {
        clearFaults(udid);
        return "ok";
    }
    if (args.size() == 4 && args[2] == "wait") {
        uint64_t ms = 0;
        if (!parseCount(args[3], ms) || ms > 600000) return kUsage;
        return "ok " + std::to_string(awaitFaults(udid, std::chrono::milliseconds(ms)));
    }
    if (args.size() != 4 && args.size() != 6) return kUsage;
    const std::string& point = args[2];
    if (!isFaultPoint(point)) return "error: unknown fault point " + point;
    uint64_t after = 0;
    if (args.size() == 6 && (args[3] != "after" || !parseCount(args[4], after))) return kUsage;
    auto action = faultAction(args.back(), device, hub);
    if (!action) return "error: unknown fault action " + args.back();
    armFault(udid, point, after, std::move(action));
    return "ok";
}

}  // namespace zsim
