// Framing of usbmuxd messages: a 16-byte little-endian header (length,
// version, message type, tag), then for version 1 an XML property list and
// for version 0 (the older binary protocol) a fixed C structure.
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

constexpr size_t kUsbmuxHeaderSize = 16;
// Requests are small dictionaries; pair records are the largest at a few KiB.
constexpr uint32_t kUsbmuxMaxMessage = 1u << 20;

// Message types. Version 0 clients use the binary ones; a property-list
// message carries its type in MessageType instead.
constexpr uint32_t kUsbmuxResult = 1;
constexpr uint32_t kUsbmuxConnect = 2;
constexpr uint32_t kUsbmuxListen = 3;
constexpr uint32_t kUsbmuxDeviceAdd = 4;
constexpr uint32_t kUsbmuxDeviceRemove = 5;
constexpr uint32_t kUsbmuxPlist = 8;

// How a client speaks: usbmuxd answers a client in binary until its first
// property-list message, and in property lists from then on.
enum class UsbmuxProtocol : uint32_t { Binary = 0, Plist = 1 };

// A binary device record: device_id, product_id, serial_number[256],
// padding, location, packed.
constexpr size_t kUsbmuxDeviceRecordSize = 4 + 2 + 256 + 2 + 4;

enum UsbmuxResultCode : uint64_t {
    kResultOk = 0,
    kResultBadCommand = 1,
    kResultBadDevice = 2,
    kResultConnectionRefused = 3,
    kResultBadVersion = 6,
};

// Decodes the 16 header bytes; false for a length no client sends.
bool decodeUsbmuxHeader(const unsigned char* raw, UsbmuxHeader& header);
// Reads one message; false when the peer left or sent something absurd.
bool readUsbmuxMessage(int fd, UsbmuxHeader& header, std::string& body);

// Whole packets, header included.
std::string usbmuxPacket(UsbmuxProtocol protocol, uint32_t message, uint32_t tag, const std::string& payload);
std::string usbmuxPlistPacket(uint32_t tag, plist_t message);
std::string usbmuxResultPacket(UsbmuxProtocol protocol, uint32_t tag, uint64_t code);
std::string usbmuxDeviceRecord(uint32_t deviceId, uint32_t productId, const std::string& serial, uint32_t location);

bool sendUsbmuxPlist(int fd, uint32_t tag, plist_t message);
bool sendUsbmuxPacket(int fd, const std::string& packet);
// {MessageType: "Result", Number: code}
PlistPtr usbmuxResult(uint64_t code);

}  // namespace zsim
