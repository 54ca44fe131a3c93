#include "core/usbmux_request.h"

#include <endian.h>

#include <cstring>

namespace zsim {
namespace {

UsbmuxRequest invalid(uint64_t code, bool plist) {
    UsbmuxRequest r;
    r.plist = plist;
    r.result = code;
    return r;
}

// The binary Connect: device_id (little-endian), the port as it goes on
// the wire (big-endian), two reserved bytes.
UsbmuxRequest binaryConnect(const char* body, size_t size) {
    if (size < 8) return invalid(kResultBadCommand, false);
    UsbmuxRequest r;
    r.kind = UsbmuxRequest::Kind::Connect;
    uint32_t id = 0;
    memcpy(&id, body, 4);
    r.deviceId = le32toh(id);
    r.hasDeviceId = true;
    r.port = static_cast<uint16_t>((static_cast<unsigned char>(body[4]) << 8) | static_cast<unsigned char>(body[5]));
    return r;
}

UsbmuxRequest plistRequest(const char* body, size_t size) {
    PlistPtr request = parsePlist(body, size);
    auto type = dictString(request.get(), "MessageType");
    // Nothing else is required: ClientVersionString, ProgName, BundleID and
    // kLibUSBMuxVersion only describe the client.
    if (!type) return invalid(kResultBadCommand, true);
    UsbmuxRequest r;
    r.plist = true;
    using Kind = UsbmuxRequest::Kind;
    if (*type == "Listen") {
        r.kind = Kind::Listen;
    } else if (*type == "Connect") {
        auto id = dictUInt(request.get(), "DeviceID");
        auto port = dictUInt(request.get(), "PortNumber");
        if (!id) return invalid(kResultBadDevice, true);
        if (!port) return invalid(kResultBadCommand, true);
        r.kind = Kind::Connect;
        r.deviceId = static_cast<uint32_t>(*id);
        r.hasDeviceId = true;
        // The port arrives in network byte order inside the integer.
        r.port = be16toh(static_cast<uint16_t>(*port));
    } else if (*type == "ListDevices") {
        r.kind = Kind::ListDevices;
    } else if (*type == "ReadBUID") {
        r.kind = Kind::ReadBuid;
    } else if (*type == "ListListeners") {
        r.kind = Kind::ListListeners;
    } else if (*type == "ReadPairRecord" || *type == "SavePairRecord" || *type == "DeletePairRecord") {
        r.kind = *type == "ReadPairRecord"   ? Kind::ReadPairRecord
                 : *type == "SavePairRecord" ? Kind::SavePairRecord
                                             : Kind::DeletePairRecord;
        r.recordId = dictString(request.get(), "PairRecordID").value_or("");
        r.recordData = dictData(request.get(), "PairRecordData");
        if (auto id = dictUInt(request.get(), "DeviceID")) {
            r.deviceId = static_cast<uint32_t>(*id);
            r.hasDeviceId = true;
        }
    } else {
        return invalid(kResultBadCommand, true);
    }
    return r;
}

}  // namespace

UsbmuxRequest parseUsbmuxRequest(const UsbmuxHeader& header, const char* body, size_t size) {
    // usbmuxd speaks versions 0 and 1 and tells any other apart.
    if (header.version > 1) return invalid(kResultBadVersion, false);
    switch (header.message) {
    case kUsbmuxPlist: return plistRequest(body, size);
    case kUsbmuxListen: {
        UsbmuxRequest r;
        r.kind = UsbmuxRequest::Kind::Listen;
        return r;
    }
    case kUsbmuxConnect: return binaryConnect(body, size);
    default: return invalid(kResultBadCommand, false);
    }
}

}  // namespace zsim
