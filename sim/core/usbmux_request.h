// A usbmuxd client's request, read from the header and body bytes of
// either protocol: the binary one (version 0: Listen, Connect) and the
// property-list one (version 1: every request by its MessageType).
#pragma once

#include "core/usbmux_wire.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zsim {

struct UsbmuxRequest {
    enum class Kind {
        Invalid,  // answered with `result`
        Listen,
        Connect,
        ListDevices,
        ReadBuid,
        ReadPairRecord,
        SavePairRecord,
        DeletePairRecord,
        ListListeners,
    };
    Kind kind = Kind::Invalid;
    bool plist = false;                   // came as a property list
    uint64_t result = kResultBadCommand;  // for Invalid
    uint32_t deviceId = 0;                // Connect, and SavePairRecord's optional DeviceID
    bool hasDeviceId = false;
    uint16_t port = 0;                    // Connect, in host order
    std::string recordId;                 // pair record requests
    std::optional<std::vector<char>> recordData;
};

UsbmuxRequest parseUsbmuxRequest(const UsbmuxHeader& header, const char* body, size_t size);

}  // namespace zsim
