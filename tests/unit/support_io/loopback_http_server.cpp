#include "loopback_http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

LoopbackHttpServer::LoopbackHttpServer(Handler handler) : handler_(std::move(handler)) {
    listenFd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listenFd_, 8);
    socklen_t length = sizeof address;
    getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread(&LoopbackHttpServer::serve, this);
}

LoopbackHttpServer::~LoopbackHttpServer() {
    stopping_ = true;
    thread_.join();
    close(listenFd_);
}

std::string LoopbackHttpServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::string LoopbackHttpServer::answer(int status, const std::string& reason, const std::string& body,
                                       const std::string& extraHeaders) {
    return "HTTP/1.1 " + std::to_string(status) + " " + reason + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\n" + extraHeaders + "\r\n" + body;
}

void LoopbackHttpServer::serve() {
    while (!stopping_) {
        pollfd waiting{listenFd_, POLLIN, 0};
        if (poll(&waiting, 1, 50) <= 0) continue;
        int client = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) continue;
        std::string request;
        char buffer[4096];
        while (request.find("\r\n\r\n") == std::string::npos) {
            pollfd readable{client, POLLIN, 0};
            if (poll(&readable, 1, 2000) <= 0) break;
            ssize_t got = recv(client, buffer, sizeof buffer, 0);
            if (got <= 0) break;
            request.append(buffer, static_cast<size_t>(got));
        }
        HttpRequest parsed;
        size_t space = request.find(' ');
        size_t second = request.find(' ', space + 1);
        if (space != std::string::npos && second != std::string::npos) {
            parsed.method = request.substr(0, space);
            parsed.path = request.substr(space + 1, second - space - 1);
            ++requests_;
            for (const auto& piece : handler_(parsed)) {
                if (piece.pauseBeforeMs > 0)
                    std::this_thread::sleep_for(std::chrono::milliseconds(piece.pauseBeforeMs));
                if (send(client, piece.bytes.data(), piece.bytes.size(), MSG_NOSIGNAL) < 0) break;
            }
        }
        close(client);
    }
}
