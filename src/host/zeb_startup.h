// The two halves of the work around the main thread's wait.
#pragma once

namespace zeb {
void startUp();
void shutDown();
}  // namespace zeb
