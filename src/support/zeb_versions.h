// Firmware version texts such as "9.1" and "10.2.1".
#pragma once

#include <string>

namespace zeb {

// 1, 0 or -1, stepping through the dot-separated numbers. A version with a
// further part ranks above one without: "9.1.0" is above "9.1".
int compareVersions(const std::string& a, const std::string& b);

}  // namespace zeb
