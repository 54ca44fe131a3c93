// Length-prefixed property list frames on a service connection: a 4-byte
// big-endian body length, then the body.
#pragma once

#include <cstdint>

#include "zeb_mobile_device_api.h"
#include "zeb_plist_bridge.h"

// Called for each received frame. Set *keepWaiting false to end the
// receive loop; *result is what SyncReceive returns.
typedef void (*SyncMessageHandler)(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting,
                                   uint8_t* result);

// The largest frame body accepted.
inline constexpr uint32_t kSyncMaxFrame = 10 * 1024 * 1024;

// Sends one frame. False only when the body's send failed.
bool SyncSendOnly(AMDServiceConnectionRef connection, const SyncMessage* message);

// Why a receive loop ended. Only the first is an answer: after either of
// the others the stream can no longer be read frame by frame, and whatever
// the device was in the middle of sending did not arrive whole.
enum class SyncReceiveEnd {
    Handled,     // the handler said stop
    BadLength,   // a length outside 1..kSyncMaxFrame
    LinkFailed,  // a receive failed: the device went away or the link broke
};

// Reads frames and hands each to handler until it says stop, the link
// fails, or a length outside 1..kSyncMaxFrame arrives. Returns the handler's
// last result (0 if it never ran); `end`, when given, says which of the
// three it was. A caller reading a list tells its normal end from a cut by
// `end`, never by the result: a broken read returns what a last page does.
uint8_t SyncReceive(AMDServiceConnectionRef connection, SyncMessageHandler handler, void* context,
                    SyncReceiveEnd* end = nullptr);

// SyncSendOnly, then SyncReceive.
uint8_t SyncExchange(AMDServiceConnectionRef connection, const SyncMessage* message, SyncMessageHandler handler,
                     void* context, SyncReceiveEnd* end = nullptr);
