// Property-list frames of the app services (installation_proxy,
// springboardservices, notification_proxy): a 4-byte big-endian length,
// then the plist.
#pragma once

#include "core/plist_util.h"
#include "service.h"

#include <vector>

namespace zsim {

struct Frame {
    PlistPtr plist;       // null: the host closed, or sent something that is no plist
    bool binary = false;  // the form the host used
};

// Reads one request. Requests larger than `maxSize` end the conversation.
Frame readFrame(ServiceStream& stream, std::vector<char>& scratch, uint32_t maxSize = 32u << 20);

// Length and body leave in one write: libimobiledevice 1.3.0 reads the
// length with a single receive.
bool sendFrame(ServiceStream& stream, plist_t message, bool binary);

// Waits while the control channel stalls the device; false once it closes.
bool waitWhileStalled(const ServiceContext& ctx);
bool deviceClosing(const ServiceContext& ctx);

}  // namespace zsim
