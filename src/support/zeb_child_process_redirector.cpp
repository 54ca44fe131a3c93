// CRedirector: a child's console output captured through a pipe and poll.
#include "zeb_child_process.h"
#include "zeb_child_process_reap.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>

extern char** environ;

// What the reading thread shares with its redirector. The thread holds its
// own reference, so an abandoned thread never touches closed descriptors.
struct CRedirector::Shared {
    ~Shared() {
        for (int fd : {stopRead, stdoutRead, processFd})
            if (fd >= 0) ::close(fd);
    }
    int stopRead = -1;
    int stdoutRead = -1;
    int processFd = -1;
    pid_t pid = -1;
    int waitTime = 100;

    std::mutex lock;
    std::condition_variable doneChanged;
    bool done = false;
    bool reaped = false;
    bool abandoned = false;  // close() gave up on the thread: deliver nothing more
    int status = -1;
};

namespace {

void closeFd(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

int openProcessFd(pid_t pid) {
#ifdef SYS_pidfd_open
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
#else
    return -1;
#endif
}

}  // namespace

CRedirector::~CRedirector() {
    CRedirector::close();
}

bool CRedirector::open(const std::string& commandLine) {
    close();
    lastStatus_ = -1;
    int out[2] = {-1, -1}, in[2] = {-1, -1}, stop[2] = {-1, -1};
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    int error = 0;
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(in, O_CLOEXEC) != 0 || pipe2(stop, O_CLOEXEC) != 0) {
        error = errno;
    } else {
        // One pipe for standard output and standard error, so that the two
        // come in the order the child wrote them.
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_adddup2(&actions, out[1], 2);
        // The worker ignores SIGPIPE; its children must not inherit that.
        sigset_t defaults, empty;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        sigemptyset(&empty);
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setsigmask(&attributes, &empty);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
        std::string shell = "/bin/sh", dashC = "-c", line = commandLine;
        char* argv[] = {shell.data(), dashC.data(), line.data(), nullptr};
        error = posix_spawn(&pid_, "/bin/sh", &actions, &attributes, argv, environ);
    }
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    for (int fd : {in[0], out[1]})
        if (fd >= 0) ::close(fd);
    if (error != 0) {
        pid_ = -1;
        for (int fd : {out[0], in[1], stop[0], stop[1]})
            if (fd >= 0) ::close(fd);
        char text[64];
        std::snprintf(text, sizeof text, "Redirect console error: %x\r\n", error);
        onStatus(text);
        errno = error;
        return false;
    }
    stdinWrite_ = in[1];
    stopWrite_ = stop[1];
    shared_ = std::make_shared<Shared>();
    shared_->stopRead = stop[0];
    shared_->stdoutRead = out[0];
    shared_->processFd = openProcessFd(pid_);
    shared_->pid = pid_;
    shared_->waitTime = waitTime;
    thread_ = std::thread(&CRedirector::readLoop, this, shared_);
    return true;
}

void CRedirector::readLoop(std::shared_ptr<Shared> shared) {
    char buffer[256];
    auto deliver = [&](ssize_t size) {
        buffer[size] = '\0';
        bool abandoned;
        {
            std::lock_guard<std::mutex> hold(shared->lock);
            abandoned = shared->abandoned;
        }
        if (!abandoned) onStdout(buffer, static_cast<size_t>(size));
    };
    auto finish = [&](bool reaped, int status) {
        std::lock_guard<std::mutex> hold(shared->lock);
        shared->reaped = reaped;
        shared->status = status;
        shared->done = true;
        shared->doneChanged.notify_all();
    };
    bool outputOpen = true;
    for (;;) {
        pollfd fds[3];
        int count = 0;
        fds[count++] = {shared->stopRead, POLLIN, 0};
        int outIndex = -1;
        if (outputOpen) {
            outIndex = count;
            fds[count++] = {shared->stdoutRead, POLLIN, 0};
        }
        if (shared->processFd >= 0) fds[count++] = {shared->processFd, POLLIN, 0};
        int ready = poll(fds, count, shared->waitTime);
        if (ready < 0 && errno == EINTR) continue;
        if (ready > 0 && fds[0].revents != 0) {
            finish(false, -1);
            return;
        }
        if (outIndex >= 0 && fds[outIndex].revents != 0) {
            ssize_t got = read(shared->stdoutRead, buffer, 255);
            if (got > 0) {
                deliver(got);
                continue;
            }
            if (got < 0 && errno == EINTR) continue;
            // End of the pipe is the normal end of the child's output.
            if (got < 0) onStatus("Read stdout pipe error\r\n");
            outputOpen = false;
        }
        int status = 0;
        pid_t ended = waitpid(shared->pid, &status, WNOHANG);
        if (ended == 0) {
            // Still running. With the output closed and no process descriptor
            // the poll above is only the wait between looks.
            continue;
        }
        if (outputOpen) {
            // The child ended but something (a grandchild, or data not yet
            // read) may still be in the pipe: take what is there now.
            fcntl(shared->stdoutRead, F_SETFL, fcntl(shared->stdoutRead, F_GETFL) | O_NONBLOCK);
            for (;;) {
                ssize_t got = read(shared->stdoutRead, buffer, 255);
                if (got > 0) {
                    deliver(got);
                } else if (got < 0 && errno == EINTR) {
                    continue;
                } else {
                    break;
                }
            }
        }
        finish(ended > 0, ended > 0 ? zeb::exitStatusOf(status) : -1);
        return;
    }
}

void CRedirector::waitReader() {
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

int CRedirector::exitCode() const {
    if (!shared_) return lastStatus_;
    std::lock_guard<std::mutex> hold(shared_->lock);
    return shared_->status;
}

void CRedirector::close() {
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) {
        char stop = 1;
        (void)!write(stopWrite_, &stop, 1);
        std::unique_lock<std::mutex> hold(shared_->lock);
        bool done = shared_->doneChanged.wait_for(hold, std::chrono::milliseconds(5000),
                                                  [&] { return shared_->done; });
        if (done) {
            hold.unlock();
            thread_.join();
        } else {
            shared_->abandoned = true;
            hold.unlock();
            onStatus("The redir thread is dead\r\n");
            thread_.detach();
        }
    }
    closeHandles();
}

void CRedirector::closeHandles() {
    closeFd(stopWrite_);
    closeFd(stdinWrite_);
    if (shared_) {
        bool reaped;
        {
            std::lock_guard<std::mutex> hold(shared_->lock);
            reaped = shared_->reaped;
        }
        lastStatus_ = exitCode();
        if (!reaped && pid_ > 0) zeb::reapInBackground(pid_);
        // Descriptors of the reading side close with the last holder.
        shared_.reset();
    }
    pid_ = -1;
}

bool CRedirector::writeInput(const void* data, size_t size) {
    const char* bytes = static_cast<const char*>(data);
    while (size > 0 && stdinWrite_ >= 0) {
        ssize_t put = write(stdinWrite_, bytes, size);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        bytes += put;
        size -= static_cast<size_t>(put);
    }
    return size == 0;
}

void CRedirector::closeInput() { closeFd(stdinWrite_); }

void CRedirector::onStdout(const char* data, size_t size) {
    std::fwrite(data, 1, size, stdout);
    std::fflush(stdout);
}

void CRedirector::onStatus(const char* text) { std::printf("%s", text); }

bool SyncRedirector::run(const std::string& commandLine, int& exitCode) {
    output.clear();
    if (!open(commandLine)) {
        exitCode = -1;
        return false;
    }
    // Nobody writes to the child: it sees the end of its input at once.
    closeInput();
    waitReader();
    exitCode = this->exitCode();
    close();
    return true;
}
