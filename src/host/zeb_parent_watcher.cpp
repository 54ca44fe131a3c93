#include "zeb_parent_watcher.h"

#include "zeb_quit.h"

#include <signal.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace zeb {

namespace {

std::atomic<pid_t> watchedPid{0};
std::mutex watcherLock;
std::condition_variable watcherWake;
bool resumeRequested = false;

void watchLoop() {
    for (;;) {
        if (processAlive(watchedPid.load())) {
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
            continue;
        }
        std::thread(postQuit).detach();
        std::unique_lock<std::mutex> hold(watcherLock);
        watcherWake.wait(hold, [] { return resumeRequested; });
        resumeRequested = false;
        hold.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
}

}  // namespace

bool processAlive(pid_t pid) {
    if (pid <= 0) return false;
    // EPERM means the process exists but belongs to someone else.
    if (kill(pid, 0) != 0 && errno != EPERM) return false;
    // A parent that died but wasn't reaped yet still answers kill(); its
    // state letter in /proc says it is gone.
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
    FILE* file = fopen(path, "r");
    if (!file) return true;
    char state = 0;
    int scanned = fscanf(file, "%*d (%*[^)]) %c", &state);
    fclose(file);
    return !(scanned == 1 && (state == 'Z' || state == 'X'));
}

void startParentWatcher(pid_t pid) {
    static std::once_flag started;
    watchedPid = pid;
    bool first = false;
    std::call_once(started, [&] {
        first = true;
        std::thread(watchLoop).detach();
    });
    if (!first) {
        std::lock_guard<std::mutex> hold(watcherLock);
        resumeRequested = true;
        watcherWake.notify_all();
    }
}

}  // namespace zeb
