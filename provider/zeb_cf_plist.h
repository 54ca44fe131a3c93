// Conversion between libplist nodes and the provider's CF values.
#pragma once

#include <plist/plist.h>

#include "zeb_mobile_device_api.h"

namespace zebcf {

// An owned CF value for the node, or null for a node of no known kind.
CFTypeRef FromPlist(plist_t node);

// An owned libplist node for the value (dictionary keys sorted, as CF writes
// them), or null when the value holds something a property list can't.
plist_t ToPlist(CFTypeRef value);

}  // namespace zebcf
