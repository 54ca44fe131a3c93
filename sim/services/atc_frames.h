// AirTraffic framing: a 4-byte LITTLE-endian length, then a binary plist.
#pragma once

#include "../service.h"

#include <plist/plist.h>

#include <mutex>
#include <vector>

namespace zsim::atc {

// Largest message accepted from a host; anything bigger is not AirTraffic.
inline constexpr uint32_t kMaxMessage = 16u << 20;

// Null when the pipe ended or the peer sent something that is not a
// framed property list.
plist_t readMessage(ServiceStream& stream, std::vector<char>& scratch);

// Whole frames only, one writer at a time.
class MessageWriter {
public:
    explicit MessageWriter(ServiceStream& stream) : stream_(stream) {}
    bool send(plist_t message);

private:
    ServiceStream& stream_;
    std::mutex mutex_;
};

// {Command, Params, Session: 0} as the device sends it; `params` is adopted
// (null gives an empty dictionary).
plist_t makeMessage(const char* command, plist_t params);

}  // namespace zsim::atc
