// A scoped hold of a mutex as the device layer passes it around: a shared
// pointer to the mutex whose deleter unlocks it.
#pragma once

#include <memory>
#include <mutex>

namespace zeb {

using ScopedHold = std::shared_ptr<std::mutex>;

inline ScopedHold holdMutex(std::mutex& mutex) {
    mutex.lock();
    return ScopedHold(&mutex, [](std::mutex* held) { held->unlock(); });
}

}  // namespace zeb
