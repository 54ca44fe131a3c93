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

// Reads frames and hands each to handler until it says stop, the link
// fails, or a length outside 1..kSyncMaxFrame arrives. Returns the handler's
// last result (0 if it never ran). `streamLost`, when given, is set when the
// wait ended because the link failed or a length was out of bounds: either
// way the stream can no longer be read frame by frame.
uint8_t SyncReceive(AMDServiceConnectionRef connection, SyncMessageHandler handler, void* context,
                    bool* streamLost = nullptr);

// SyncSendOnly, then SyncReceive.
uint8_t SyncExchange(AMDServiceConnectionRef connection, const SyncMessage* message, SyncMessageHandler handler,
                     void* context, bool* streamLost = nullptr);
