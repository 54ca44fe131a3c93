#include "zeb_parent_link.h"

#include "zeb_send_all.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

namespace zparent {

namespace {

constexpr size_t kReceiveBlock = 64 * 1024;
constexpr size_t kLargestReceive = 4 * 1024 * 1024;

int msUntil(std::chrono::steady_clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
}

// A descriptor that becomes readable the moment a child process ends, so a
// wait wakes then instead of at its next poll; where the kernel has none,
// waits fall back to short naps.
class EndWatch {
public:
    explicit EndWatch(pid_t process) : handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0))) {}
    ~EndWatch() {
        if (handle >= 0) close(handle);
    }
    EndWatch(const EndWatch&) = delete;
    EndWatch& operator=(const EndWatch&) = delete;

    void sleepUntilEnded(std::chrono::steady_clock::time_point deadline) const {
        if (handle < 0) return std::this_thread::sleep_for(std::chrono::milliseconds(std::min(msUntil(deadline), 5)));
        pollfd ended{handle, POLLIN, 0};
        poll(&ended, 1, msUntil(deadline));
    }

private:
    int handle;
};

}  // namespace

std::vector<std::string> workerArguments(const WorkerOptions& options, int port) {
    std::vector<std::string> args = {
        std::to_string(port),
        std::to_string(options.parentPid ? options.parentPid : getpid()),
        options.console ? "1" : "0",
        options.testModule ? "1" : "0",
        options.log ? "1" : "0",
        options.productVersion,
        options.logFolderName,
        options.productName,
        std::to_string(options.runMode),
        "0",  // position 9 is never read
    };
    if (options.runMode == 1) args.push_back(std::to_string(options.taskId));
    return args;
}

bool isFinalReport(const Event& event) {
    if (event.stage != 0) return false;
    uint16_t status = event.frame.packetStatus;
    // A refused item of a longer command also stands at stage 0 with status
    // 6, but with code 0; the report that ends with an error never has 0.
    return status == 1 || status == 5 || (status == 6 && event.code != 0);
}

ParentLink::~ParentLink() {
    if (worker > 0) stopWorker();
    closeConnection();
    if (listener >= 0) close(listener);
}

bool ParentLink::listen() {
    listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0) return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(listener, 4) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return false;
    listenPort = ntohs(address.sin_port);
    return true;
}

pid_t ParentLink::startWorker(const WorkerOptions& options) {
    std::vector<std::string> args = workerArguments(options, options.port >= 0 ? options.port : listenPort);
    args.insert(args.begin(), options.program);
    pid_t child = fork();
    if (child < 0) return -1;
    if (child == 0) {
        for (const auto& [name, value] : options.environment) setenv(name.c_str(), value.c_str(), 1);
        if (!options.outputFile.empty()) {
            int out = open(options.outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
            if (out >= 0) {
                dup2(out, 1);
                dup2(out, 2);
                close(out);
            }
        }
        std::vector<char*> argv;
        for (auto& arg : args) argv.push_back(arg.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        fprintf(stderr, "cannot start the worker %s: %s\n", argv[0], strerror(errno));
        _exit(127);
    }
    worker = child;
    return child;
}

bool ParentLink::acceptWorker(std::chrono::milliseconds timeout) {
    pollfd waiting{listener, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(timeout.count())) <= 0) return false;
    connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    linkClosed = connection < 0;
    int on = 1;  // requests are small: none waits for a delayed acknowledgement
    if (connection >= 0) setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return connection >= 0;
}

bool ParentLink::send(const std::string& bytes) { return send(bytes, nullptr, 0); }

bool ParentLink::send(const std::string& head, const void* tail, size_t tailLength) {
    return zeb::sendAll(connection, head.data(), head.size(), tail, tailLength);
}

bool ParentLink::sendCommand(uint64_t taskId, uint32_t commandType, const std::string& json,
                             const std::optional<std::string>& tailJson, uint16_t packetStatus) {
    return send(encodeCommand(taskId, commandType, json, tailJson, packetStatus));
}

bool ParentLink::fill(std::chrono::steady_clock::time_point deadline) {
    if (connection < 0 || linkClosed) return false;
    pollfd waiting{connection, POLLIN, 0};
    int ready = poll(&waiting, 1, msUntil(deadline));
    if (ready <= 0) return false;
    // A large frame is received in one go where the socket has it.
    size_t want = std::min<size_t>(std::max<size_t>(reader.missing(), kReceiveBlock), kLargestReceive);
    char* into = reader.room(want);
    ssize_t got = recv(connection, into, want, 0);
    if (got <= 0) {
        linkClosed = true;
        return false;
    }
    reader.commit(static_cast<size_t>(got));
    return true;
}

std::optional<Frame> ParentLink::nextFrame(std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        Frame frame;
        switch (reader.take(frame)) {
            case FrameReader::Step::frame: return frame;
            case FrameReader::Step::broken:
                fprintf(stderr, "parent: the worker's link carries bytes that are not frames; closing it\n");
                closeConnection();
                linkClosed = true;
                return std::nullopt;
            case FrameReader::Step::needMore: break;
        }
        if (!fill(deadline)) return std::nullopt;
    }
}

std::optional<Event> ParentLink::nextEvent(std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        auto frame = nextFrame(std::chrono::milliseconds(msUntil(deadline)));
        if (!frame) return std::nullopt;
        Event event;
        if (parseEvent(std::move(*frame), event)) return event;
    }
}

std::vector<Event> ParentLink::collectUntilReport(uint64_t taskId, std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    std::vector<Event> events;
    for (;;) {
        auto event = nextEvent(std::chrono::milliseconds(msUntil(deadline)));
        if (!event) return {};
        bool last = event->frame.taskId == taskId && isFinalReport(*event);
        events.push_back(std::move(*event));
        if (last) return events;
    }
}

bool ParentLink::waitWorkerExit(std::chrono::milliseconds timeout, int* status) {
    if (worker <= 0) return true;
    auto deadline = std::chrono::steady_clock::now() + timeout;
    const EndWatch watch(worker);
    for (;;) {
        int result = 0;
        pid_t done = waitpid(worker, &result, WNOHANG);
        if (done == worker || (done < 0 && errno == ECHILD)) {
            if (status) *status = result;
            worker = -1;
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline) return false;
        watch.sleepUntilEnded(deadline);
    }
}

int ParentLink::stopWorker(std::chrono::milliseconds grace) {
    if (worker <= 0) return 0;
    int status = 0;
    kill(worker, SIGTERM);
    if (!waitWorkerExit(grace, &status)) {
        kill(worker, SIGKILL);
        waitWorkerExit(std::chrono::milliseconds(5000), &status);
    }
    return status;
}

void ParentLink::closeConnection() {
    if (connection >= 0) close(connection);
    connection = -1;
}

}  // namespace zparent
