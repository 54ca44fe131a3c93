// The ready-made waits of a mobilesync session, as SyncMessageHandlers.
#pragma once

#include "zeb_plist_variant.h"

#include <cstdint>

namespace zeb {

// A decoded frame holds the message as element 0 of its outer array; null
// when the frame is no such array (the end of any wait).
const PlistVariant* syncMessageOf(const PlistVariant& frame);

// True when any element of the message is a string equal to `text`, with
// or without regard to letter case.
bool messageHolds(const PlistVariant& message, const char* text, bool ignoreCase);

}  // namespace zeb

// Waits for the message named by `context` (a NUL-ended UTF-8 name): the
// name may stand in any element and in any letter case. Other messages are
// dropped and the wait goes on; a frame that is not a non-empty array ends
// it. `result` stays false.
void MessageNameMatcher(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result);

// Any one frame ends the wait; `result` stays false.
void AnyMessageMatcher(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result);
