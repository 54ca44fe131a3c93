// A service connection played by the test: the binding's send and receive
// slots point at an in-memory peer while a ScriptedService lives.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "zeb_bound_provider.h"

struct ScriptedPeer {
    std::vector<uint8_t> incoming;
    size_t readPosition = 0;
    size_t largestRead = 4096;  // receives hand out at most this much, as TCP may
    std::vector<uint8_t> sent;
    int sendCalls = 0;
    bool failBodySend = false;  // the second send (a frame's body) fails

    // A 4-byte big-endian length, then `body` when given.
    void queueLength(uint32_t length) {
        for (int shift = 24; shift >= 0; shift -= 8) incoming.push_back(static_cast<uint8_t>(length >> shift));
    }
    void queueFrame(const std::string& body) {
        queueLength(static_cast<uint32_t>(body.size()));
        incoming.insert(incoming.end(), body.begin(), body.end());
    }
};

class ScriptedService {
public:
    explicit ScriptedService(ScriptedPeer& peer) {
        auto& md = BoundProvider();
        savedReceive_ = md.AMDServiceConnectionReceive;
        savedSend_ = md.AMDServiceConnectionSend;
        md.AMDServiceConnectionReceive = Receive;
        md.AMDServiceConnectionSend = Send;
        current() = &peer;
    }
    ~ScriptedService() {
        auto& md = CMobileExportFun::GetInstance();
        md.AMDServiceConnectionReceive = savedReceive_;
        md.AMDServiceConnectionSend = savedSend_;
        current() = nullptr;
    }
    ScriptedService(const ScriptedService&) = delete;
    ScriptedService& operator=(const ScriptedService&) = delete;

private:
    static ScriptedPeer*& current() {
        static ScriptedPeer* peer = nullptr;
        return peer;
    }
    static ssize_t Receive(AMDServiceConnectionRef, void* buffer, size_t length) {
        ScriptedPeer& peer = *current();
        const size_t n = std::min({length, peer.incoming.size() - peer.readPosition, peer.largestRead});
        std::memcpy(buffer, peer.incoming.data() + peer.readPosition, n);
        peer.readPosition += n;
        return n == 0 ? -1 : static_cast<ssize_t>(n);
    }
    static ssize_t Send(AMDServiceConnectionRef, const void* buffer, size_t length) {
        ScriptedPeer& peer = *current();
        ++peer.sendCalls;
        if (peer.failBodySend && peer.sendCalls == 2) return -1;
        auto* bytes = static_cast<const uint8_t*>(buffer);
        peer.sent.insert(peer.sent.end(), bytes, bytes + length);
        return static_cast<ssize_t>(length);
    }

    AMDServiceConnectionReceive_t* savedReceive_ = nullptr;
    AMDServiceConnectionSend_t* savedSend_ = nullptr;
};
