// The pieces of an end-to-end test: a zebrelo-sim process with a control
// socket, and the worker started by the test acting as its parent.
#pragma once

#include "zeb_parent_link.h"

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace e2e {

std::string profileDir(const std::string& name);

class Simulator {
public:
    // Extra arguments after --socket/--state/--control (e.g. --profile DIR).
    explicit Simulator(const std::vector<std::string>& extraArgs = {});
    ~Simulator();
    bool ready() const { return pid > 0; }
    pid_t processId() const { return pid; }
    const std::string& socketPath() const { return socket; }
    // One control command; the answer line ("ok ..." or "error: ...").
    std::string control(const std::string& command);
    // The UDID of a newly attached device, or empty.
    std::string attach(const std::string& what);
    // The UDIDs of every device the simulator knows, in its order.
    std::vector<std::string> udids();

    std::string folder;

private:
    std::string socket, controlSocket;
    pid_t pid = -1;
};

// The worker as a parent starts it, pointed at the simulator.
class Worker {
public:
    // `environment`: variables set for the worker beside the simulator's socket.
    explicit Worker(const Simulator& sim, int runMode = 0, const std::map<std::string, std::string>& environment = {});
    ~Worker();
    bool connected() const { return up; }
    zparent::ParentLink link;

    // The first event for which `match` holds; events before it are kept
    // for later waits. nullopt on time-out.
    std::optional<zparent::Event> waitFor(const std::function<bool(const zparent::Event&)>& match,
                                          std::chrono::milliseconds timeout = std::chrono::seconds(20));
    std::optional<zparent::Event> waitForReady(const std::string& udid,
                                               std::chrono::milliseconds timeout = std::chrono::seconds(20));
    // Events that arrive within `window`, after what is kept.
    std::vector<zparent::Event> drain(std::chrono::milliseconds window);
    // Sends one command and collects its events until its final report.
    std::vector<zparent::Event> run(uint32_t command, const std::string& json,
                                    const std::optional<std::string>& tail = std::nullopt,
                                    std::chrono::milliseconds timeout = std::chrono::seconds(30));
    uint64_t nextTaskId() { return ++lastTaskId; }

private:
    std::vector<zparent::Event> kept;
    std::string temp;
    bool up = false;
    uint64_t lastTaskId = 100;
};

std::string commandJson(const std::string& udid, int64_t code = 0);

}  // namespace e2e

namespace e2e {
// A copy of a shipped profile with texts of its profile.plist replaced, in
// a folder that lives as long as the object.
class ProfileVariant {
public:
    ProfileVariant(const std::string& base, const std::vector<std::pair<std::string, std::string>>& replacements);
    ~ProfileVariant();
    const std::string& path() const { return dir; }

private:
    std::string root, dir;
};
}  // namespace e2e
