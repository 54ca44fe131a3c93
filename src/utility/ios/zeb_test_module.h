// The developer's self-test, reachable from the test-module flag.
#pragma once

#include "zeb_device.h"

namespace zeb {

// With no device: version comparisons and sample dates on stdout.
void runTestModule();
// With a device: the overview query runs on it, between two log lines.
void runTestModule(const DevicePtr& device);

}  // namespace zeb
