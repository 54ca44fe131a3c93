// Host-side framing for the property-list services in the wire tests.
#pragma once

#include "wire_harness.h"

#include <plist/plist.h>

#include <string>

namespace wiretest {

enum class Endian { Big, Little };

bool sendPlist(ServiceRun& run, plist_t message, Endian endian, bool binary);
// Null on timeout or close. `binary` (optional) tells the form that came.
plist_t receivePlist(ServiceRun& run, Endian endian, int timeoutMs = 3000, bool* binary = nullptr);

std::string stringAt(plist_t dict, const char* key);
uint64_t uintAt(plist_t dict, const char* key);
plist_t dictFromXml(const std::string& xml);

}  // namespace wiretest
