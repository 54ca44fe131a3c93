// Watches the parent process every 500 ms; its disappearance is the one way
// the worker ends.
#pragma once

#include <sys/types.h>

namespace zeb {

// The first call starts the watcher; a later one wakes a watcher that has
// fired, so that it resumes with the new pid.
void startParentWatcher(pid_t pid);
bool processAlive(pid_t pid);

}  // namespace zeb
