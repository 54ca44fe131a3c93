// Faults armed at named points of a device's service traffic, so that a
// test can hurt a conversation at an exact place ("once 3 MiB of file data
// have been read", "at the second file open") instead of racing it. Each
// fault fires once, on the thread of the service that reaches its point,
// and runs its action (stall the device, break its connections, pull it
// out) before that traffic goes on.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace zsim {

// The points, and what passes them:
//   afc-read          bytes of file data in AFC read answers
//   afc-write         bytes of file data that AFC writes put into files
//   afc-open          AFC file open requests
//   afc-device-info   AFC device information requests
//   sync-page         pages of records a mobilesync session sends
//   browse-page       pages of an installation proxy Browse answer
bool isFaultPoint(const std::string& point);

// Arms a fault at `point` of device `udid`: once `after` units have passed
// there, the next unit to come runs `action` first.
void armFault(const std::string& udid, const std::string& point, uint64_t after, std::function<void()> action);
// The device's faults that are armed and have not fired yet.
size_t pendingFaults(const std::string& udid);
// Waits up to `timeout` until the device's faults have fired and their
// actions have run; those still armed then.
size_t awaitFaults(const std::string& udid, std::chrono::milliseconds timeout);
void clearFaults(const std::string& udid);

// Called by a service before `units` pass `point`: runs the actions of the
// faults due now, then gives how many of the units may pass before the
// next one is due, and counts those as passed. While nothing is armed it
// costs one atomic load and gives `units`.
uint64_t passFaultPoint(const std::string& udid, const char* point, uint64_t units);

}  // namespace zsim
