// What the provider needs from the host's pair record, kept by usbmuxd.
#pragma once

#include <string>

namespace zebprov {

// The record's HostID, or empty when there is no usable record.
std::string ReadPairedHostId(const std::string& udid);

}  // namespace zebprov
