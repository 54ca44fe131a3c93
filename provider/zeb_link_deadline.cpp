#include "zeb_link_deadline.h"

#include <sys/socket.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "zeb_socket_io.h"

namespace zebprov {

namespace {

using Clock = std::chrono::steady_clock;

// The library's own wait for a lockdown answer.
constexpr int kLockdownAnswerMs = 30000;

// One thread watches every armed deadline. Sockets are cut and deadlines
// disarmed under the watch's lock, so a disarmed socket is never cut.
class Watch {
public:
    static Watch& Get() {
        static auto* watch = new Watch();  // outlives every thread
        return *watch;
    }

    bool Arm(LinkDeadline::Watched* watched) {
        std::lock_guard<std::mutex> hold(lock_);
        if (!started_) {
            try {
                std::thread([this] { Run(); }).detach();
            } catch (const std::system_error&) {
                return false;  // without a watcher the library's own waits apply
            }
            started_ = true;
        }
        armed_.push_back(watched);
        changed_.notify_one();
        return true;
    }

    bool Disarm(LinkDeadline::Watched* watched) {
        std::lock_guard<std::mutex> hold(lock_);
        armed_.erase(std::remove(armed_.begin(), armed_.end(), watched), armed_.end());
        return watched->expired;
    }

private:
    void Run() {
        std::unique_lock<std::mutex> hold(lock_);
        for (;;) {
            const auto now = Clock::now();
            auto next = Clock::time_point::max();
            for (auto it = armed_.begin(); it != armed_.end();) {
                if ((*it)->due <= now) {
                    shutdown((*it)->fd, SHUT_RDWR);
                    (*it)->expired = true;
                    it = armed_.erase(it);
                } else {
                    next = std::min(next, (*it)->due);
                    ++it;
                }
            }
            if (next == Clock::time_point::max())
                changed_.wait(hold);
            else
                changed_.wait_until(hold, next);
        }
    }

    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<LinkDeadline::Watched*> armed_;
    bool started_ = false;
};

}  // namespace

int LockdownTimeoutMs() { return IoTimeoutMs(kLockdownAnswerMs); }

LinkDeadline::LinkDeadline(int fd, int timeoutMs)
    : watched_{fd, Clock::now() + std::chrono::milliseconds(timeoutMs)} {
    if (fd >= 0) armed_ = Watch::Get().Arm(&watched_);
}

bool LinkDeadline::Disarm() {
    if (!armed_) return watched_.expired;
    armed_ = false;
    return Watch::Get().Disarm(&watched_);
}

}  // namespace zebprov
