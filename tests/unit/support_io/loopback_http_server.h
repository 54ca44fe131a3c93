// A tiny HTTP server on 127.0.0.1 for download tests: one thread, one
// connection at a time, canned answers written in pieces with pauses.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

struct HttpPiece {
    std::string bytes;
    int pauseBeforeMs = 0;
};

struct HttpRequest {
    std::string method;
    std::string path;
};

class LoopbackHttpServer {
public:
    using Handler = std::function<std::vector<HttpPiece>(const HttpRequest&)>;
    explicit LoopbackHttpServer(Handler handler);
    ~LoopbackHttpServer();
    int port() const { return port_; }
    std::string url(const std::string& path) const;
    int requests() const { return requests_; }

    // A complete answer with a body and its stated length.
    static std::string answer(int status, const std::string& reason, const std::string& body,
                              const std::string& extraHeaders = "");

private:
    void serve();
    Handler handler_;
    int listenFd_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    std::atomic<int> requests_{0};
    std::thread thread_;
};
