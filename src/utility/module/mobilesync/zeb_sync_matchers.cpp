#include "zeb_sync_matchers.h"

#include "zeb_plist_bridge.h"

#include <strings.h>

namespace zeb {

const PlistVariant* syncMessageOf(const PlistVariant& frame) {
    if (frame.tag() != VariantTag::Array || frame.array().empty()) return nullptr;
    return &frame.array().front();
}

bool messageHolds(const PlistVariant& message, const char* text, bool ignoreCase) {
    if (message.tag() != VariantTag::Array) return false;
    for (const PlistVariant& element : message.array()) {
        if (element.tag() != VariantTag::String) continue;
        const char* value = element.text().c_str();
        if (ignoreCase ? strcasecmp(value, text) == 0 : element.text() == text) return true;
    }
    return false;
}

}  // namespace zeb

void MessageNameMatcher(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    *keepWaiting = false;
    PlistVariant frame;
    if (!DecodeFrame(bytes, length, frame)) return;
    const PlistVariant* message = zeb::syncMessageOf(frame);
    if (!message) return;
    *result = 0;
    const char* expected = static_cast<const char*>(context);
    *keepWaiting = !expected || !zeb::messageHolds(*message, expected, true);
}

void AnyMessageMatcher(void*, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    *keepWaiting = false;
    PlistVariant frame;
    if (DecodeFrame(bytes, length, frame) && zeb::syncMessageOf(frame)) *result = 0;
}
