#include "core/usbmux_wire.h"

#include "core/socket_io.h"

#include <endian.h>

#include <cstring>

namespace zsim {
namespace {

void appendLE32(std::string& out, uint32_t v) {
    uint32_t le = htole32(v);
    out.append(reinterpret_cast<const char*>(&le), sizeof(le));
}

}  // namespace

bool decodeUsbmuxHeader(const unsigned char* raw, UsbmuxHeader& header) {
    uint32_t words[4];
    memcpy(words, raw, sizeof(words));
    header.length = le32toh(words[0]);
    header.version = le32toh(words[1]);
    header.message = le32toh(words[2]);
    header.tag = le32toh(words[3]);
    return header.length >= kUsbmuxHeaderSize && header.length <= kUsbmuxMaxMessage;
}

bool readUsbmuxMessage(int fd, UsbmuxHeader& header, std::string& body) {
    unsigned char raw[kUsbmuxHeaderSize];
    if (!readFull(fd, raw, sizeof(raw))) return false;
    if (!decodeUsbmuxHeader(raw, header)) return false;
    body.assign(header.length - kUsbmuxHeaderSize, '\0');
    return body.empty() || readFull(fd, body.data(), body.size());
}

std::string usbmuxPacket(UsbmuxProtocol protocol, uint32_t message, uint32_t tag, const std::string& payload) {
    std::string packet;
    packet.reserve(kUsbmuxHeaderSize + payload.size());
    appendLE32(packet, static_cast<uint32_t>(kUsbmuxHeaderSize + payload.size()));
    appendLE32(packet, static_cast<uint32_t>(protocol));
    appendLE32(packet, message);
    appendLE32(packet, tag);
    packet += payload;
    return packet;
}

std::string usbmuxPlistPacket(uint32_t tag, plist_t message) {
    return usbmuxPacket(UsbmuxProtocol::Plist, kUsbmuxPlist, tag, toXml(message));
}

std::string usbmuxResultPacket(UsbmuxProtocol protocol, uint32_t tag, uint64_t code) {
    if (protocol == UsbmuxProtocol::Plist) return usbmuxPlistPacket(tag, usbmuxResult(code).get());
    std::string number;
    appendLE32(number, static_cast<uint32_t>(code));
    return usbmuxPacket(protocol, kUsbmuxResult, tag, number);
}

std::string usbmuxDeviceRecord(uint32_t deviceId, uint32_t productId, const std::string& serial, uint32_t location) {
    std::string record;
    record.reserve(kUsbmuxDeviceRecordSize);
    appendLE32(record, deviceId);
    uint16_t product = htole16(static_cast<uint16_t>(productId));
    record.append(reinterpret_cast<const char*>(&product), sizeof(product));
    // A NUL-terminated serial in a fixed field, cut to fit as usbmuxd does.
    std::string field = serial.substr(0, 255);
    field.resize(256, '\0');
    record += field;
    record.append(2, '\0');  // padding
    appendLE32(record, location);
    return record;
}

bool sendUsbmuxPlist(int fd, uint32_t tag, plist_t message) {
    return sendUsbmuxPacket(fd, usbmuxPlistPacket(tag, message));
}

bool sendUsbmuxPacket(int fd, const std::string& packet) { return writeFull(fd, packet.data(), packet.size()); }

PlistPtr usbmuxResult(uint64_t code) {
    PlistPtr r = adopt(plist_new_dict());
    plist_dict_set_item(r.get(), "MessageType", plist_new_string("Result"));
    plist_dict_set_item(r.get(), "Number", plist_new_uint(code));
    return r;
}

}  // namespace zsim
