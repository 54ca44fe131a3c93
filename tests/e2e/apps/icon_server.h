// A small HTTP server on loopback for the tests: it answers every GET of
// `path` with `body` (200) and anything else with 404.
#pragma once

#include <atomic>
#include <string>
#include <thread>

class IconServer {
public:
    IconServer(std::string path, std::string body);
    ~IconServer();
    int port() const { return listenPort; }
    std::string url() const;
    int hits() const { return served; }

private:
    void serve();
    std::string path, body;
    int listener = -1;
    int listenPort = 0;
    std::atomic<bool> stopping{false};
    std::atomic<int> served{0};
    std::thread thread;
};
