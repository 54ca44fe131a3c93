#include "core/app_notifications.h"

#include <vector>

namespace zsim {

int NotificationCenter::subscribe(Listener listener) {
    std::lock_guard<std::mutex> lock(mutex_);
    const int id = nextId_++;
    listeners_[id] = std::move(listener);
    return id;
}

void NotificationCenter::unsubscribe(int id) {
    std::lock_guard<std::mutex> lock(mutex_);
    listeners_.erase(id);
}

void NotificationCenter::post(const std::string& name) {
    // Listeners are called under the lock so that one that unsubscribes
    // (and is then destroyed) is never called afterwards.
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& [id, listener] : listeners_) listener(name);
}

}  // namespace zsim
