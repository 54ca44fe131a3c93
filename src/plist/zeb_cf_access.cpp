#include "zeb_plist_bridge.h"

#include "zeb_mobile_export_fun.h"

#include <vector>

namespace {
CMobileExportFun& cf() { return CMobileExportFun::GetInstance(); }
}  // namespace

const void* CfDictionaryValue(CFTypeRef dict, const char* key) {
    if (!dict || cf().CFGetTypeID(dict) != kZebCFDictionaryTypeID) return nullptr;
    CFStringRef name = cf().CFStringCreateWithCString(nullptr, key, kZebCFStringEncodingUTF8);
    const void* value = cf().CFDictionaryGetValue(static_cast<CFDictionaryRef>(dict), name);
    cf().CFRelease(name);
    return value;
}

bool CfStringText(const void* value, std::string& out) {
    if (!value || cf().CFGetTypeID(value) != kZebCFStringTypeID) return false;
    std::vector<char> text(static_cast<size_t>(cf().CFStringGetLength(value)) * 4 + 1, '\0');
    if (!cf().CFStringGetCString(value, text.data(), static_cast<CFIndex>(text.size()), kZebCFStringEncodingUTF8))
        return false;
    out = text.data();
    return true;
}
