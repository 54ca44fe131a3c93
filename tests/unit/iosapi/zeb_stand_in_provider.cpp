// A stand-in provider that exports every name of the contract but one
// (AMDeviceSetValue), so the binding meets a library it must refuse.
#include "zeb_mobile_device_api.h"

#define AMDeviceSetValue ZebStandInLacksThisName
#define ZEB_STAND_IN(name, result, params) \
    extern "C" __attribute__((visibility("default"))) void name() {}
ZEB_MOBILE_DEVICE_FUNCTIONS(ZEB_STAND_IN)

extern "C" {
__attribute__((visibility("default"))) const void* kCFStreamPropertyDataWritten = nullptr;
__attribute__((visibility("default"))) const void* kCFBooleanTrue = nullptr;
}
