// DeviceLink messages of com.apple.mobilesync: plist arrays whose first
// element names the message, framed as a 4-byte big-endian length and the
// plist. The device writes binary plists and reads binary or XML.
#pragma once

#include "core/plist_util.h"
#include "service.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace zsim {

// Null when the host closed, or sent something that is not a plist array
// starting with a string.
PlistPtr readSyncMessage(ServiceStream& stream, std::vector<char>& scratch);

// The whole frame, length included, encoded once.
std::string encodeSyncFrame(plist_t message);
// Takes ownership of the elements.
std::string encodeSyncFrame(std::initializer_list<plist_t> elements);
bool sendSyncFrame(ServiceStream& stream, const std::string& frame);

// Element `index` as text; empty when absent or not a string.
std::string messageString(plist_t message, uint32_t index);
// Element `index`, or null.
plist_t messageItem(plist_t message, uint32_t index);

}  // namespace zsim
