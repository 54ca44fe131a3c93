// What the raw-protocol checks share: ending with a message, and a
// connection to the simulator's usbmuxd socket with a receive time limit.
#pragma once

#include <string>

[[noreturn]] void fail(const std::string& what);

// Connected, or the check fails.
int connectMuxSocket(const char* path, int receiveSeconds);
