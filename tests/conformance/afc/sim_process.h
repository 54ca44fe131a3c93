// A zebrelo-sim child process on a temporary socket and state folder, with
// USBMUXD_SOCKET_ADDRESS pointed at it for libimobiledevice.
#pragma once

#include <string>
#include <thread>
#include <vector>

namespace simtest {

class SimProcess {
public:
    // Extra arguments follow --socket and --state (e.g. --profile DIR).
    explicit SimProcess(const std::vector<std::string>& extraArgs = {});
    ~SimProcess();  // SIGTERM, then SIGKILL if it lingers; folders removed

    bool ready() const { return ready_; }
    const std::string& failure() const { return failure_; }
    const std::string& stateDir() const { return stateDir_; }

private:
    int pid_ = -1;
    std::thread drain_;  // keeps reading the child's stdout until it exits
    bool ready_ = false;
    std::string failure_;
    std::string dir_;
    std::string stateDir_;
};

}  // namespace simtest
