// The control channel: one text command per line, one answer line each,
// starting with "ok" or "error: ". Commands are listed in sim/README.md.
#pragma once

#include <string>

namespace zsim {

class DeviceHub;

// Runs one command and returns its answer line (without the newline).
std::string runControlCommand(const std::string& line, DeviceHub& hub);

// Serves one control client on `fd` and closes it at the end.
void serveControlClient(int fd, DeviceHub& hub);

}  // namespace zsim
