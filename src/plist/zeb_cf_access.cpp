#include "zeb_plist_bridge.h"

#include "zeb_mobile_export_fun.h"

#include <vector>

namespace {
CMobileExportFun& cf() { return CMobileExportFun::GetInstance(); }
}  // namespace

const void* CfDictionaryValue(CFTypeRef dict, const char* key) {
    if (!dict || !key || cf().CFGetTypeID(dict) != kZebCFDictionaryTypeID) return nullptr;
    // Keys are the code's own names: interned once, not made and freed per look-up.
    return cf().CFDictionaryGetValue(static_cast<CFDictionaryRef>(dict), cf().__CFStringMakeConstantString(key));
}

bool CfStringText(const void* value, std::string& out) {
    if (!value || cf().CFGetTypeID(value) != kZebCFStringTypeID) return false;
    std::vector<char> text(static_cast<size_t>(cf().CFStringGetLength(value)) * 4 + 1, '\0');
    if (!cf().CFStringGetCString(value, text.data(), static_cast<CFIndex>(text.size()), kZebCFStringEncodingUTF8))
        return false;
    out = text.data();
    return true;
}
