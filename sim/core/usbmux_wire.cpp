#include "core/usbmux_wire.h"

#include "core/socket_io.h"

#include <endian.h>

namespace zsim {
namespace {
// Requests are small dictionaries; pair records are the largest at a few KiB.
constexpr uint32_t kMaxMessage = 1u << 20;
}  // namespace

bool readUsbmuxMessage(int fd, UsbmuxHeader& header, std::string& body) {
    uint32_t raw[4];
    if (!readFull(fd, raw, sizeof(raw))) return false;
    header.length = le32toh(raw[0]);
    header.version = le32toh(raw[1]);
    header.message = le32toh(raw[2]);
    header.tag = le32toh(raw[3]);
    if (header.length < sizeof(raw) || header.length > kMaxMessage) return false;
    body.assign(header.length - sizeof(raw), '\0');
    return body.empty() || readFull(fd, body.data(), body.size());
}

bool sendUsbmuxPlist(int fd, uint32_t tag, plist_t message) {
    std::string xml = toXml(message);
    uint32_t raw[4] = {htole32(static_cast<uint32_t>(xml.size() + 16)), htole32(1), htole32(kUsbmuxPlist),
                       htole32(tag)};
    std::string packet(reinterpret_cast<const char*>(raw), sizeof(raw));
    packet += xml;
    return writeFull(fd, packet.data(), packet.size());
}

PlistPtr usbmuxResult(uint64_t code) {
    PlistPtr r = adopt(plist_new_dict());
    plist_dict_set_item(r.get(), "MessageType", plist_new_string("Result"));
    plist_dict_set_item(r.get(), "Number", plist_new_uint(code));
    return r;
}

}  // namespace zsim
