// What a parent does: listen on loopback, start the worker with the
// positional arguments, accept its connection, send commands, read events.
#pragma once

#include "zeb_parent_frame.h"
#include "zeb_parent_frame_reader.h"

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zparent {

struct WorkerOptions {
    std::string program = "zebrelo";  // path of the worker executable
    int port = -1;                     // -1: the link's own port
    pid_t parentPid = 0;               // 0: this process
    bool console = false;
    bool testModule = false;
    bool log = false;
    std::string productVersion = "1.0.0";
    std::string logFolderName = "Zebrelo";
    std::string productName = "Zebrelo";
    int runMode = 0;
    int64_t taskId = 0;                // passed in run mode 1
    std::map<std::string, std::string> environment;  // added to ours
    std::string outputFile;            // worker's stdout/stderr; empty: inherit
};

// The argument list the worker reads by position.
std::vector<std::string> workerArguments(const WorkerOptions& options, int port);

class ParentLink {
public:
    ParentLink() = default;
    ~ParentLink();
    ParentLink(const ParentLink&) = delete;
    ParentLink& operator=(const ParentLink&) = delete;

    // Listens on 127.0.0.1 at a port of the system's choosing.
    bool listen();
    int port() const { return listenPort; }

    // Starts the worker; its pid, or -1.
    pid_t startWorker(const WorkerOptions& options);
    pid_t workerPid() const { return worker; }
    // True once the worker has connected.
    bool acceptWorker(std::chrono::milliseconds timeout);
    bool connected() const { return connection >= 0; }

    bool send(const std::string& bytes);
    // A head and a raw tail as one write, the tail sent from where it lies.
    bool send(const std::string& head, const void* tail, size_t tailLength);
    bool sendCommand(uint64_t taskId, uint32_t commandType, const std::string& json,
                     const std::optional<std::string>& tailJson = std::nullopt, uint16_t packetStatus = 0);

    // The next whole frame; nullopt on time-out or a closed link.
    std::optional<Frame> nextFrame(std::chrono::milliseconds timeout);
    // The next event that parses; frames that don't are skipped.
    std::optional<Event> nextEvent(std::chrono::milliseconds timeout);
    // Events of one task until its final report (stage 0 with a packetStatus
    // of 1, 5 or 6, that is not the head of a list). Empty on time-out.
    std::vector<Event> collectUntilReport(uint64_t taskId, std::chrono::milliseconds timeout);
    bool closed() const { return linkClosed; }

    // Ends the worker (SIGTERM, then SIGKILL) and reaps it; its exit status.
    int stopWorker(std::chrono::milliseconds grace = std::chrono::milliseconds(2000));
    // Waits for the worker to exit by itself; false on time-out.
    bool waitWorkerExit(std::chrono::milliseconds timeout, int* status = nullptr);
    void closeConnection();

private:
    bool fill(std::chrono::steady_clock::time_point deadline);

    int listener = -1;
    int listenPort = 0;
    int connection = -1;
    pid_t worker = -1;
    FrameReader reader;
    bool linkClosed = false;
};

// A worker event that ends a command.
bool isFinalReport(const Event& event);

}  // namespace zparent
