#include "sim_harness.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace e2e {

std::string profileDir(const std::string& name) { return std::string(ZEBRELO_SOURCE_DIR) + "/sim/profiles/" + name; }

std::string commandJson(const std::string& udid, int64_t code) {
    return "{\"uuid\":\"" + udid + "\",\"code\":" + std::to_string(code) + "}";
}

Simulator::Simulator(const std::vector<std::string>& extraArgs) {
    char pattern[] = "/tmp/zeb-e2e-sim-XXXXXX";
    folder = mkdtemp(pattern);
    socket = folder + "/mux.sock";
    controlSocket = folder + "/control.sock";
    const std::string log = folder + "/sim.log";
    std::vector<std::string> args = {ZEBRELO_SIM, "--socket", socket, "--state", folder + "/state", "--control",
                                     controlSocket};
    args.insert(args.end(), extraArgs.begin(), extraArgs.end());
    pid = fork();
    if (pid == 0) {
        int out = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(out, 1);
        dup2(out, 2);
        std::vector<char*> argv;
        for (auto& arg : args) argv.push_back(arg.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    for (int spin = 0; spin < 200; ++spin) {
        std::ifstream in(log);
        std::stringstream text;
        text << in.rdbuf();
        if (text.str().find("listening") != std::string::npos) return;
        if (waitpid(pid, nullptr, WNOHANG) == pid) break;
        std::this_thread::sleep_for(25ms);
    }
    pid = -1;
}

Simulator::~Simulator() {
    if (pid > 0) {
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
    }
    fs::remove_all(folder);
}

std::string Simulator::control(const std::string& command) {
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, controlSocket.c_str(), sizeof address.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return "error: no control socket";
    }
    std::string line = command + "\n";
    (void)!write(fd, line.data(), line.size());
    std::string answer;
    char c;
    while (read(fd, &c, 1) == 1 && c != '\n') answer.push_back(c);
    close(fd);
    return answer;
}

std::string Simulator::attach(const std::string& what) {
    std::string answer = control("attach " + what);
    return answer.rfind("ok ", 0) == 0 ? answer.substr(3) : std::string();
}

std::vector<std::string> Simulator::udids() {
    std::istringstream answer(control("list"));
    std::string word, count, entry;
    answer >> word >> count;
    std::vector<std::string> found;
    while (answer >> entry) found.push_back(entry.substr(0, entry.find(',')));
    return found;
}

Worker::Worker(const Simulator& sim, int runMode, const std::map<std::string, std::string>& environment) {
    char pattern[] = "/tmp/zeb-e2e-worker-XXXXXX";
    temp = mkdtemp(pattern);
    zparent::WorkerOptions options;
    options.program = ZEBRELO_WORKER;
    options.runMode = runMode;
    options.taskId = 4242;
    options.environment = environment;
    options.environment["USBMUXD_SOCKET_ADDRESS"] = "UNIX:" + sim.socketPath();
    options.environment["TMPDIR"] = temp;
    options.outputFile = temp + "/worker.out";
    if (!link.listen() || link.startWorker(options) < 0) return;
    up = link.acceptWorker(10s);
}

Worker::~Worker() {
    link.stopWorker();
    fs::remove_all(temp);
}

std::optional<zparent::Event> Worker::waitFor(const std::function<bool(const zparent::Event&)>& match,
                                              std::chrono::milliseconds timeout) {
    for (auto it = kept.begin(); it != kept.end(); ++it) {
        if (match(*it)) {
            zparent::Event found = *it;
            kept.erase(it);
            return found;
        }
    }
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        auto event = link.nextEvent(left);
        if (!event) break;
        if (match(*event)) return event;
        kept.push_back(std::move(*event));
    }
    return std::nullopt;
}

std::optional<zparent::Event> Worker::waitForReady(const std::string& udid, std::chrono::milliseconds timeout) {
    return waitFor([&](const zparent::Event& e) { return e.frame.commandType == 1 && e.uuid == udid; }, timeout);
}

std::vector<zparent::Event> Worker::drain(std::chrono::milliseconds window) {
    std::vector<zparent::Event> events;
    events.swap(kept);
    auto deadline = std::chrono::steady_clock::now() + window;
    while (std::chrono::steady_clock::now() < deadline) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        auto event = link.nextEvent(left);
        if (!event) break;
        events.push_back(std::move(*event));
    }
    return events;
}

std::vector<zparent::Event> Worker::run(uint32_t command, const std::string& json,
                                        const std::optional<std::string>& tail, std::chrono::milliseconds timeout) {
    const uint64_t taskId = nextTaskId();
    if (!link.sendCommand(taskId, command, json, tail)) return {};
    std::vector<zparent::Event> events;
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        auto event = waitFor([&](const zparent::Event& e) { return e.frame.taskId == taskId; }, left);
        if (!event) break;
        events.push_back(*event);
        if (zparent::isFinalReport(*event)) return events;
    }
    return {};
}

}  // namespace e2e

namespace e2e {

ProfileVariant::ProfileVariant(const std::string& base,
                               const std::vector<std::pair<std::string, std::string>>& replacements) {
    char pattern[] = "/tmp/zeb-e2e-profile-XXXXXX";
    root = mkdtemp(pattern);
    dir = root + "/" + base;
    fs::copy(profileDir(base), dir, fs::copy_options::recursive);
    std::ifstream in(dir + "/profile.plist");
    std::stringstream text;
    text << in.rdbuf();
    std::string plist = text.str();
    for (const auto& [from, to] : replacements) {
        size_t at = plist.find(from);
        if (at != std::string::npos) plist.replace(at, from.size(), to);
    }
    std::ofstream(dir + "/profile.plist", std::ios::trunc) << plist;
}

ProfileVariant::~ProfileVariant() { fs::remove_all(root); }

}  // namespace e2e
