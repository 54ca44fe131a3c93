#include "zeb_sim_process.h"

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

namespace {

// Reads one line from fd within the time limit.
std::string ReadLine(int fd, int timeoutMs) {
    std::string line;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        char c;
        if (read(fd, &c, 1) != 1) break;
        if (c == '\n') return line;
        line += c;
    }
    return line;
}

}  // namespace

bool SimProcess::Start(const std::string& simulator, const std::vector<std::string>& profiles) {
    char pattern[] = "/tmp/zeb-provider-e2e-XXXXXX";
    if (!mkdtemp(pattern)) return false;
    folder_ = pattern;
    std::vector<std::string> args = {simulator,   "--socket",  folder_ + "/mux", "--state",
                                     folder_ + "/state", "--control", folder_ + "/control"};
    for (const auto& p : profiles) {
        args.push_back("--profile");
        args.push_back(p);
    }
    int out[2];
    if (pipe(out) != 0) return false;
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlive a test program that died
        dup2(out[1], STDOUT_FILENO);
        close(out[0]);
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(out[1]);
    std::string ready = ReadLine(out[0], 10000);
    // Keep draining its output so the simulator never blocks on a full pipe.
    std::thread([fd = out[0]] {
        char buffer[512];
        while (read(fd, buffer, sizeof buffer) > 0) {
        }
        close(fd);
    }).detach();
    if (ready.find("listening") == std::string::npos) {
        Stop();
        return false;
    }
    setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + folder_ + "/mux").c_str(), 1);
    return true;
}

void SimProcess::Stop() {
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        for (int i = 0; i < 50 && waitpid(pid_, nullptr, WNOHANG) == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        if (waitpid(pid_, nullptr, WNOHANG) == 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        pid_ = -1;
    }
    if (!folder_.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(folder_, ec);
        folder_.clear();
    }
}

std::string SimProcess::Control(const std::string& command) const {
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = folder_ + "/control";
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return "error: control socket unreachable";
    }
    std::string line = command + "\n";
    if (send(fd, line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
        close(fd);
        return "error: control send failed";
    }
    std::string answer = ReadLine(fd, 10000);
    close(fd);
    return answer;
}
