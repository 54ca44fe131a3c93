#include "zeb_quit.h"

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace zeb {

namespace {
std::atomic<bool> quittingFlag{false};
std::mutex latchLock;
std::condition_variable latch;
}  // namespace

void postQuit() {
    {
        std::lock_guard<std::mutex> hold(latchLock);
        quittingFlag = true;
    }
    latch.notify_all();
}

bool quitting() { return quittingFlag.load(std::memory_order_relaxed); }

void waitForQuit() {
    std::unique_lock<std::mutex> hold(latchLock);
    latch.wait(hold, [] { return quittingFlag.load(); });
}

}  // namespace zeb
