// "Info.plist" of a backup folder: what the device is, its store apps with
// their icons, and the desktop library's files from the media partition.
#pragma once

#include "zeb_device.h"
#include "zeb_packet.h"

#include <filesystem>

namespace backup {

// Writes the file (binary property list) over whatever is there; failures
// leave it missing or partial and are not reported.
void writeInfoPlist(ZEBDevice& device, const IPCPacket1* command, const std::filesystem::path& folder);

}  // namespace backup
