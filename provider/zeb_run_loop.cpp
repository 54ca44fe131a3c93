#include "zeb_run_loop.h"

#include <condition_variable>
#include <deque>
#include <mutex>

#include "zeb_exports.h"

namespace zebprov {

namespace {

struct RunLoopQueue {
    std::mutex lock;
    std::condition_variable ready;
    std::deque<std::function<void()>> work;
};

// Never destroyed: the loop thread blocks on it for the life of the process.
RunLoopQueue& Queue() {
    static auto* queue = new RunLoopQueue();
    return *queue;
}

}  // namespace

void PostToRunLoop(std::function<void()> work) {
    auto& q = Queue();
    {
        std::lock_guard<std::mutex> hold(q.lock);
        q.work.push_back(std::move(work));
    }
    q.ready.notify_all();
}

}  // namespace zebprov

extern "C" void CFRunLoopRun() {
    auto& q = zebprov::Queue();
    for (;;) {
        std::function<void()> next;
        {
            std::unique_lock<std::mutex> hold(q.lock);
            q.ready.wait(hold, [&] { return !q.work.empty(); });
            next = std::move(q.work.front());
            q.work.pop_front();
        }
        next();
    }
}
