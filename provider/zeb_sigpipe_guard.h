// Writes to a device that has just gone must not kill the host process with
// SIGPIPE. The libraries below write with plain send(), so the signal is
// blocked on the calling thread for the length of a call, and one raised in
// that time is taken off the thread before it is unblocked.
#pragma once

#include <signal.h>
#include <time.h>

namespace zebprov {

class SigpipeGuard {
public:
    SigpipeGuard() {
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        alreadyPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe, &previous_);
    }
    ~SigpipeGuard() {
        if (!alreadyPending_) {
            sigset_t pipe;
            sigemptyset(&pipe);
            sigaddset(&pipe, SIGPIPE);
            timespec none{0, 0};
            while (sigtimedwait(&pipe, nullptr, &none) > 0) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
    }
    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;

private:
    sigset_t previous_;
    bool alreadyPending_ = false;
};

}  // namespace zebprov
