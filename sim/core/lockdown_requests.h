// Lockdown's answers to a host's requests, apart from the socket and TLS
// they travel over: one object per connection, holding whether a session
// is running.
#pragma once

#include "core/plist_util.h"

#include <cstdint>
#include <optional>
#include <string>

namespace zsim {

class Device;

// Lockdown messages are small; a length near this is a confused peer.
constexpr uint32_t kLockdownMaxMessage = 4u << 20;

// The length of the frame that starts with these 4 big-endian bytes;
// nullopt for a length no host sends (the connection is dropped).
std::optional<uint32_t> lockdownFrameLength(const unsigned char* fourBytes);

// What the connection does once the answer is sent.
enum class LockdownStep {
    Continue,
    StartTls,  // the host expects a TLS handshake; sessionStarted() on success
    StopTls,   // the session ended: back to the plain socket
    Close,     // the host said goodbye or sent something that is not a request
};

struct LockdownReply {
    PlistPtr answer;  // null: nothing is sent
    LockdownStep step = LockdownStep::Continue;
};

class LockdownRequests {
public:
    explicit LockdownRequests(Device& device) : device_(device) {}

    // Answers one decoded request. Keys a request does not need (Label,
    // ProtocolVersion, or any other) are ignored, as a device does.
    LockdownReply handle(plist_t request);
    // The TLS handshake after StartSession succeeded.
    void sessionStarted();

    // The host of the session being started or running.
    const std::string& hostId() const { return hostId_; }

private:
    LockdownReply getValue(plist_t request);
    LockdownReply setValue(plist_t request);
    LockdownReply removeValue(plist_t request);
    LockdownReply pair(plist_t request);
    LockdownReply validatePair(plist_t request);
    LockdownReply unpair(plist_t request);
    LockdownReply startSession(plist_t request);
    LockdownReply stopSession();
    LockdownReply startService(plist_t request);

    Device& device_;
    bool inSession_ = false;
    std::string hostId_;
};

}  // namespace zsim
