// The queue behind CFRunLoopRun: work posted here runs, in order, on the
// thread that runs the loop (device notifications are delivered this way).
#pragma once

#include <functional>

namespace zebprov {

void PostToRunLoop(std::function<void()> work);

}  // namespace zebprov
