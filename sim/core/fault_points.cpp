#include "core/fault_points.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace zsim {
namespace {

const char* const kPoints[] = {"afc-read", "afc-write", "afc-open", "afc-device-info", "sync-page", "browse-page"};

struct Fault {
    uint64_t id = 0;
    std::string udid;
    std::string point;
    uint64_t left = 0;     // units that may still pass before it fires
    bool firing = false;   // its action runs; it counts as armed until done
    std::function<void()> action;
};

std::mutex faultsLock;
std::condition_variable faultsFired;
std::vector<Fault> faults;
uint64_t lastId = 0;
// The data path reads this without the lock: nothing armed, nothing to do.
std::atomic<size_t> armedCount{0};

size_t pendingLocked(const std::string& udid) {
    return static_cast<size_t>(std::count_if(faults.begin(), faults.end(), [&](const Fault& f) { return f.udid == udid; }));
}

}  // namespace

bool isFaultPoint(const std::string& point) {
    return std::find(std::begin(kPoints), std::end(kPoints), point) != std::end(kPoints);
}

void armFault(const std::string& udid, const std::string& point, uint64_t after, std::function<void()> action) {
    std::lock_guard<std::mutex> hold(faultsLock);
    faults.push_back({++lastId, udid, point, after, false, std::move(action)});
    armedCount = faults.size();
}

size_t pendingFaults(const std::string& udid) {
    std::lock_guard<std::mutex> hold(faultsLock);
    return pendingLocked(udid);
}

size_t awaitFaults(const std::string& udid, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> hold(faultsLock);
    faultsFired.wait_for(hold, timeout, [&] { return pendingLocked(udid) == 0; });
    return pendingLocked(udid);
}

void clearFaults(const std::string& udid) {
    std::lock_guard<std::mutex> hold(faultsLock);
    faults.erase(std::remove_if(faults.begin(), faults.end(), [&](const Fault& f) { return f.udid == udid && !f.firing; }),
                 faults.end());
    armedCount = faults.size();
    faultsFired.notify_all();
}

uint64_t passFaultPoint(const std::string& udid, const char* point, uint64_t units) {
    if (units == 0 || armedCount.load() == 0) return units;
    std::vector<std::pair<uint64_t, std::function<void()>>> due;
    uint64_t allowed = units;
    {
        std::lock_guard<std::mutex> hold(faultsLock);
        auto here = [&](const Fault& f) { return f.udid == udid && f.point == point && !f.firing; };
        for (Fault& f : faults) {
            if (here(f) && f.left == 0) {
                f.firing = true;
                due.emplace_back(f.id, std::move(f.action));
            }
        }
        for (const Fault& f : faults)
            if (here(f)) allowed = std::min(allowed, f.left);
        for (Fault& f : faults)
            if (here(f)) f.left -= allowed;
    }
    if (due.empty()) return allowed;
    // Outside the lock: an action may close connections whose threads are
    // on their way here.
    for (auto& [id, action] : due) action();
    std::lock_guard<std::mutex> hold(faultsLock);
    for (auto& [id, action] : due) {
        const uint64_t done = id;
        faults.erase(std::remove_if(faults.begin(), faults.end(), [&](const Fault& f) { return f.id == done; }),
                     faults.end());
    }
    armedCount = faults.size();
    faultsFired.notify_all();
    return allowed;
}

}  // namespace zsim
