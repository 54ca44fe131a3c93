#include "sim_process.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#ifndef ZEBRELO_SIM_PATH
#error "ZEBRELO_SIM_PATH must name the zebrelo-sim binary"
#endif

namespace simtest {
namespace {

// Waits up to `ms` for a line containing "listening" on the child's stdout.
bool waitForReadyLine(int fd, int ms, std::string& seen) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    char buf[512];
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd pfd{fd, POLLIN, 0};
        if (::poll(&pfd, 1, 100) <= 0) continue;
        ssize_t n = ::read(fd, buf, sizeof buf);
        if (n <= 0) return false;
        seen.append(buf, static_cast<size_t>(n));
        if (seen.find("listening") != std::string::npos && seen.find('\n') != std::string::npos) return true;
    }
    return false;
}

}  // namespace

SimProcess::SimProcess(const std::vector<std::string>& extraArgs) {
    char tmpl[] = "/tmp/zsim-afc-XXXXXX";
    if (!::mkdtemp(tmpl)) {
        failure_ = "mkdtemp failed";
        return;
    }
    dir_ = tmpl;
    stateDir_ = dir_ + "/state";
    std::filesystem::create_directories(stateDir_);
    const std::string socketPath = dir_ + "/usbmuxd.sock";

    int out[2];
    if (::pipe(out) != 0) {
        failure_ = "pipe failed";
        return;
    }
    std::vector<std::string> args = {ZEBRELO_SIM_PATH, "--socket", socketPath, "--state", stateDir_};
    args.insert(args.end(), extraArgs.begin(), extraArgs.end());
    pid_ = ::fork();
    if (pid_ == 0) {
        ::dup2(out[1], STDOUT_FILENO);
        ::close(out[0]);
        ::close(out[1]);
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(out[1]);
    std::string seen;
    ready_ = pid_ > 0 && waitForReadyLine(out[0], 10000, seen);
    const int readEnd = out[0];
    drain_ = std::thread([readEnd] {
        char sink[4096];
        while (::read(readEnd, sink, sizeof sink) > 0) {
        }
        ::close(readEnd);
    });
    if (!ready_) {
        failure_ = "zebrelo-sim did not become ready; it printed: " + seen;
        return;
    }
    ::setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + socketPath).c_str(), 1);
}

SimProcess::~SimProcess() {
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        int status = 0;
        bool reaped = false;
        for (int i = 0; i < 100 && !reaped; ++i) {
            reaped = ::waitpid(pid_, &status, WNOHANG) == pid_;
            if (!reaped) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        if (!reaped) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, &status, 0);
        }
    }
    if (drain_.joinable()) drain_.join();
    ::unsetenv("USBMUXD_SOCKET_ADDRESS");
    if (!dir_.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
    }
}

}  // namespace simtest
