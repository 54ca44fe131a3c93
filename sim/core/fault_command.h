// The control channel's "fault" command: arms a fault at a point of a
// device's traffic with its action, tells how many are still armed, or
// clears them (see sim/README.md, "Control channel").
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace zsim {

class Device;
class DeviceHub;

// `args` are the command's words, "fault" and the UDID first; the answer
// line.
std::string runFaultCommand(const std::vector<std::string>& args, const std::shared_ptr<Device>& device,
                            DeviceHub& hub);

}  // namespace zsim
