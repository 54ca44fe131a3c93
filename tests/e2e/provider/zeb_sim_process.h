// A zebrelo-sim child for the provider tests: its own socket, state and
// control channel in a temporary folder, stopped (by its pid) at the end.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

class SimProcess {
public:
    SimProcess() = default;
    ~SimProcess() { Stop(); }

    // Starts the simulator with the given profile folders and waits for its
    // ready line. Sets USBMUXD_SOCKET_ADDRESS for this process.
    bool Start(const std::string& simulator, const std::vector<std::string>& profiles);
    void Stop();

    // One control command; the answer line without its newline.
    std::string Control(const std::string& command) const;

private:
    pid_t pid_ = -1;
    std::string folder_;
};
