// Blocking socket reads and writes that never wait forever: each waits in
// short slices and gives up once the peer has been silent for too long.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>

namespace zebprov {

// The silence after which an exchange with a device is abandoned, in
// milliseconds. ZEBRELO_PROVIDER_IO_TIMEOUT_MS overrides the default.
int IoTimeoutMs(int defaultMs);

// Up to length bytes: the count received, 0 when the peer closed, -1 on an
// error, on silence beyond timeoutMs, or once *gone is set.
ssize_t ReceiveSome(int fd, void* buffer, size_t length, int timeoutMs, const std::atomic<bool>* gone);

// True when the peer has hung up on fd (or fd is shut down or failed):
// no exchange can run on it again. Waits for nothing and reads nothing;
// bytes waiting to be read are no sign of it.
bool PeerHungUp(int fd);

// All of the bytes, or false.
bool ReceiveAll(int fd, void* buffer, size_t length, int timeoutMs, const std::atomic<bool>* gone);
bool SendAll(int fd, const void* buffer, size_t length, int timeoutMs, const std::atomic<bool>* gone);

}  // namespace zebprov
