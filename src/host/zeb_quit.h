// The end of the process: the main thread waits on the quit latch, which
// the parent watcher releases when the parent has gone.
#pragma once

namespace zeb {

// Sets `quitting` and releases the main thread.
void postQuit();
// From this moment the hub drops every further command.
bool quitting();
// Blocks the calling (main) thread until postQuit.
void waitForQuit();

}  // namespace zeb
