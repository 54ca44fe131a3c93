// Framing of usbmuxd messages: a 16-byte little-endian header (length,
// version, message type, tag) and, for version 1, an XML property list.
#pragma once

#include "core/plist_util.h"

#include <cstdint>
#include <string>

namespace zsim {

struct UsbmuxHeader {
    uint32_t length = 0;
    uint32_t version = 0;
    uint32_t message = 0;
    uint32_t tag = 0;
};

constexpr uint32_t kUsbmuxResult = 1;
constexpr uint32_t kUsbmuxPlist = 8;

enum UsbmuxResultCode : uint64_t {
    kResultOk = 0,
    kResultBadCommand = 1,
    kResultBadDevice = 2,
    kResultConnectionRefused = 3,
    kResultBadVersion = 6,
};

// Reads one message; false when the peer left or sent something absurd.
bool readUsbmuxMessage(int fd, UsbmuxHeader& header, std::string& body);
bool sendUsbmuxPlist(int fd, uint32_t tag, plist_t message);
// {MessageType: "Result", Number: code}
PlistPtr usbmuxResult(uint64_t code);

}  // namespace zsim
