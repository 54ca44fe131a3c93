// What the diagnostics relay answers to each request, built from the
// device's profile ("IORegistry", "Values", optional "MobileGestalt" and
// "Diagnostics" dictionaries).
#pragma once

#include <plist/plist.h>

namespace zsim::diagnostics {

struct Reply {
    plist_t answer = nullptr;  // owned by the caller
    bool endsSession = false;  // Goodbye, or the device going away
};

// `request` is whatever the host sent (any plist); `profile` may be null.
Reply answerRequest(plist_t request, plist_t profile);

}  // namespace zsim::diagnostics
