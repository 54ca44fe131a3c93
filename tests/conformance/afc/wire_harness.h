// Runs one simulator service handler on its own thread over a socket pair,
// the test holding the host's end, as lockdown would after StartService.
#pragma once

#include "service.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace wiretest {

class ServiceRun {
public:
    ServiceRun(const std::string& service, zsim::ServiceContext ctx);
    ~ServiceRun();  // closes the host end and waits for the handler

    int hostFd() const { return hostFd_; }
    bool sendAll(const void* p, size_t n);
    bool recvExact(void* p, size_t n, int timeoutMs = 5000);
    // True when the handler closed its end (within the timeout).
    bool peerClosed(int timeoutMs = 2000);
    void closeHost();
    bool handlerFinished() const { return finished_.load(); }

    std::atomic<bool> stalled{false};
    std::atomic<bool> closing{false};

private:
    zsim::ServiceContext ctx_;
    int hostFd_ = -1;
    int serviceFd_ = -1;
    std::atomic<bool> finished_{false};
    std::thread thread_;
};

// A temporary folder removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

void writeFile(const std::filesystem::path& p, const std::string& content);

}  // namespace wiretest
