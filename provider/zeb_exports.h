// Every name the provider exports, declared from the function types of the
// operation contract so that a definition that drifts fails to compile.
#pragma once

#include "zeb_mobile_device_api.h"

#define ZEB_API __attribute__((visibility("default")))

#define ZEB_DECLARE_EXPORT(name, result, params) extern "C" ZEB_API name##_t name;
ZEB_MOBILE_DEVICE_FUNCTIONS(ZEB_DECLARE_EXPORT)
#undef ZEB_DECLARE_EXPORT

extern "C" ZEB_API const CFStringRef kCFStreamPropertyDataWritten;
extern "C" ZEB_API const CFBooleanRef kCFBooleanTrue;
