// Bad input on the usbmuxd socket and on a lockdown connection gets an error
// answer or a closed connection, never a crash or a hang; result codes are
// the ones usbmuxd gives.
#include "raw_socket.h"

#include <plist/plist.h>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const char* gSocket = nullptr;

int connectMux() { return connectMuxSocket(gSocket, 5); }

void sendRaw(int fd, const std::string& bytes) {
    if (send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size())) fail("send");
}

std::string header(uint32_t length, uint32_t version, uint32_t message, uint32_t tag) {
    uint32_t h[4] = {length, version, message, tag};  // little-endian host
    return std::string(reinterpret_cast<char*>(h), sizeof(h));
}

std::string muxMessage(plist_t dict, uint32_t tag) {
    char* xml = nullptr;
    uint32_t len = 0;
    plist_to_xml(dict, &xml, &len);
    std::string out = header(len + 16, 1, 8, tag) + std::string(xml, len);
    free(xml);
    plist_free(dict);
    return out;
}

plist_t request(const char* type) {
    plist_t d = plist_new_dict();
    plist_dict_set_item(d, "MessageType", plist_new_string(type));
    return d;
}

bool readExact(int fd, void* buf, size_t n) {
    auto* p = static_cast<char*>(buf);
    while (n > 0) {
        ssize_t got = recv(fd, p, n, 0);
        if (got <= 0) return false;
        p += got;
        n -= static_cast<size_t>(got);
    }
    return true;
}

// The Number of the next Result message, checking the echoed tag.
uint64_t readResult(int fd, uint32_t tag) {
    uint32_t h[4];
    if (!readExact(fd, h, sizeof(h))) fail("no answer");
    if (h[3] != tag) fail("tag not echoed");
    std::string body(h[0] - 16, '\0');
    if (!readExact(fd, body.data(), body.size())) fail("short answer");
    plist_t answer = nullptr;
    plist_from_xml(body.data(), static_cast<uint32_t>(body.size()), &answer);
    plist_t number = answer ? plist_dict_get_item(answer, "Number") : nullptr;
    if (!number) fail("answer without a Number: " + body);
    uint64_t value = 0;
    plist_get_uint_val(number, &value);
    plist_free(answer);
    return value;
}

bool closedByPeer(int fd) {
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, 5000) != 1) return false;
    char c;
    return recv(fd, &c, 1, 0) == 0;
}

uint32_t firstDeviceId() {
    int fd = connectMux();
    sendRaw(fd, muxMessage(request("ListDevices"), 1));
    uint32_t h[4];
    if (!readExact(fd, h, sizeof(h))) fail("ListDevices");
    std::string body(h[0] - 16, '\0');
    readExact(fd, body.data(), body.size());
    close(fd);
    size_t at = body.find("<key>DeviceID</key>");
    if (at == std::string::npos) fail("no device listed");
    return static_cast<uint32_t>(atoi(body.c_str() + body.find("<integer>", at) + 9));
}

plist_t connectRequest(uint32_t deviceId, uint16_t port) {
    plist_t d = request("Connect");
    plist_dict_set_item(d, "DeviceID", plist_new_uint(deviceId));
    plist_dict_set_item(d, "PortNumber", plist_new_uint(htons(port)));
    return d;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) fail("usage: mux_robustness_check SOCKET");
    gSocket = argv[1];

    // Result codes.
    int fd = connectMux();
    sendRaw(fd, muxMessage(request("NoSuchMessage"), 7));
    if (readResult(fd, 7) != 1) fail("unknown message type should be a bad command");
    sendRaw(fd, header(16, 2, 3, 8));  // a protocol version after 0 and 1
    if (readResult(fd, 8) != 6) fail("an unknown protocol version should be a bad version");
    plist_t missing = request("ReadPairRecord");
    plist_dict_set_item(missing, "PairRecordID", plist_new_string("0000000000000000000000000000000000000000"));
    sendRaw(fd, muxMessage(missing, 9));
    if (readResult(fd, 9) != 2) fail("a missing pair record should answer 2");
    plist_t traversal = request("ReadPairRecord");
    plist_dict_set_item(traversal, "PairRecordID", plist_new_string("../../etc/passwd"));
    sendRaw(fd, muxMessage(traversal, 10));
    if (readResult(fd, 10) != 2) fail("a path as record id must not be read");
    sendRaw(fd, header(16 + 9, 1, 8, 11) + "not plist");
    if (readResult(fd, 11) != 1) fail("garbage body should be a bad command");
    close(fd);

    uint32_t id = firstDeviceId();
    fd = connectMux();
    sendRaw(fd, muxMessage(connectRequest(id + 1000, 62078), 2));
    if (readResult(fd, 2) != 2) fail("Connect to an unknown device should answer 2");
    close(fd);
    fd = connectMux();
    sendRaw(fd, muxMessage(connectRequest(id, 1234), 3));
    if (readResult(fd, 3) != 3) fail("Connect to a closed port should be refused");
    close(fd);

    // Absurd lengths end the conversation.
    fd = connectMux();
    sendRaw(fd, header(0xFFFFFFF0u, 1, 8, 4));
    if (!closedByPeer(fd)) fail("a huge usbmuxd length should close the connection");
    close(fd);
    fd = connectMux();
    sendRaw(fd, muxMessage(connectRequest(id, 62078), 5));
    if (readResult(fd, 5) != 0) fail("Connect to lockdown");
    sendRaw(fd, std::string("\x7f\xff\xff\xff", 4));
    if (!closedByPeer(fd)) fail("a huge lockdown length should close the connection");
    close(fd);
    fd = connectMux();
    sendRaw(fd, muxMessage(connectRequest(id, 62078), 6));
    if (readResult(fd, 6) != 0) fail("Connect to lockdown");
    sendRaw(fd, std::string("\0\0\0\x0cgarbagebytes", 16));
    if (!closedByPeer(fd)) fail("a lockdown message that is no property list should close the connection");
    close(fd);

    // And the simulator is still there.
    if (firstDeviceId() != id) fail("device list changed");
    printf("bad input answered or dropped\n");
    return 0;
}
