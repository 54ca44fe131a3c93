#include "icon_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

IconServer::IconServer(std::string path, std::string body) : path(std::move(path)), body(std::move(body)) {
    listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener, 8);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    listenPort = ntohs(address.sin_port);
    thread = std::thread([this] { serve(); });
}

IconServer::~IconServer() {
    stopping = true;
    thread.join();
    close(listener);
}

std::string IconServer::url() const { return "http://127.0.0.1:" + std::to_string(listenPort) + path; }

void IconServer::serve() {
    while (!stopping) {
        pollfd wait{listener, POLLIN, 0};
        if (poll(&wait, 1, 100) <= 0) continue;
        int client = accept(listener, nullptr, nullptr);
        if (client < 0) continue;
        std::string request;
        char buffer[1024];
        while (request.find("\r\n\r\n") == std::string::npos) {
            ssize_t got = recv(client, buffer, sizeof buffer, 0);
            if (got <= 0) break;
            request.append(buffer, static_cast<size_t>(got));
        }
        const bool found = request.rfind("GET " + path + " ", 0) == 0;
        const std::string content = found ? body : std::string("missing");
        std::string answer = std::string(found ? "HTTP/1.1 200 OK" : "HTTP/1.1 404 Not Found") +
                             "\r\nContent-Type: image/png\r\nConnection: close\r\nContent-Length: " +
                             std::to_string(content.size()) + "\r\n\r\n" + content;
        send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
        if (found) ++served;
        close(client);
    }
}
