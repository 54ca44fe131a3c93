// The first object of the device overview: lockdown values, member by
// member, each present only when the device gave it.
#pragma once

#include "zeb_device.h"

#include <string>

namespace zeb {

// The overview object as JSON text; "IsJailbreak" comes last.
std::string BuildDeviceOverview(ZEBDevice& device);

}  // namespace zeb
