// The two halves of the work around the main thread's wait.
#pragma once

namespace zeb {
void startUp();
void shutDown();
// The developer's self-test; with no device it prints version comparisons
// and sample dates to stdout.
void runTestModule();
}  // namespace zeb
