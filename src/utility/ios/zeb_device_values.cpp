// Lockdown values of a device: read as CF values through the binding and
// turned into the value tree or into plain strings and integers.
#include "zeb_device.h"

#include "zeb_plist_bridge.h"

#include <cmath>
#include <cstring>
#include <vector>

namespace zeb {

namespace {

// A null for an empty or absent text, as the copy operations take it.
CFStringRef intern(const char* text) {
    return text && *text ? api().__CFStringMakeConstantString(text) : nullptr;
}

}  // namespace

CFTypeRef CopyDomainValue(DeviceHandle handle, const char* key, const char* domain) {
    return api().AMDeviceCopyValue(handle, intern(domain), intern(key));
}

CFTypeRef CopyValue(DeviceHandle handle, const char* key) { return CopyDomainValue(handle, key, nullptr); }

bool ReadValue(DeviceHandle handle, const char* key, const char* domain, PlistVariant& value) {
    CFTypeRef copied = CopyDomainValue(handle, key, domain);
    if (!copied) return false;
    bool converted = CfToVariant(copied, value);
    api().CFRelease(copied);
    return converted;
}

bool IntegerFromCF(CFTypeRef value, int64_t& number) {
    return value && api().CFGetTypeID(value) == kZebCFNumberTypeID && NumberToInteger(value, number);
}

bool FlagFromCF(CFTypeRef value, int& flag) {
    if (!value || api().CFGetTypeID(value) != kZebCFBooleanTypeID) return false;
    flag = api().CFBooleanGetValue(value) ? 1 : 0;
    return true;
}

bool FamiliesFromCF(CFTypeRef value, std::vector<int64_t>& families) {
    if (!value) return false;
    if (api().CFGetTypeID(value) != kZebCFArrayTypeID) return true;
    for (CFIndex i = 0, count = api().CFArrayGetCount(value); i < count; ++i) {
        CFTypeRef element = api().CFArrayGetValueAtIndex(value, i);
        if (!element || api().CFGetTypeID(element) != kZebCFNumberTypeID) continue;
        CFIndex type = api().CFNumberGetType(element);
        int64_t family = 0;
        if ((type == kZebCFNumberSInt32Type || type == kZebCFNumberSInt64Type) &&
            api().CFNumberGetValue(element, kZebCFNumberSInt64Type, &family))
            families.push_back(family);
    }
    return true;
}

bool ReadStringValue(DeviceHandle handle, const char* key, const char* domain, std::string& value) {
    CFTypeRef copied = CopyDomainValue(handle, key, domain);
    bool ok = CfStringText(copied, value);
    if (copied) api().CFRelease(copied);
    return ok;
}

bool NumberToInteger(CFNumberRef number, int64_t& value) {
    CFIndex type = api().CFNumberGetType(number);
    if (type < 1) return false;
    if (type == kZebCFNumberFloat64Type) {
        double real = 0;
        if (!api().CFNumberGetValue(number, kZebCFNumberFloat64Type, &real)) return false;
        value = static_cast<int64_t>(std::floor(real + 0.5));
        return true;
    }
    if ((type >= 1 && type <= 4) || (type >= 7 && type <= 11))
        return api().CFNumberGetValue(number, kZebCFNumberSInt64Type, &value);
    return false;
}

bool ReadIntegerValue(DeviceHandle handle, const char* key, int64_t& value, const char* domain) {
    CFTypeRef copied = CopyDomainValue(handle, key, domain);
    bool ok = IntegerFromCF(copied, value);
    if (copied) api().CFRelease(copied);
    return ok;
}

bool ReadDeviceFamilies(DeviceHandle handle, std::vector<int64_t>& families) {
    CFTypeRef copied = CopyValue(handle, "SupportedDeviceFamilies");
    bool ok = FamiliesFromCF(copied, families);
    if (copied) api().CFRelease(copied);
    return ok;
}

DomainValues::DomainValues(DeviceHandle handle, const char* domain) : values_(CopyDomainValue(handle, nullptr, domain)) {
    if (values_ && api().CFGetTypeID(values_) != kZebCFDictionaryTypeID) {
        api().CFRelease(values_);
        values_ = nullptr;
    }
}

DomainValues::~DomainValues() {
    if (values_) api().CFRelease(values_);
}

CFTypeRef DomainValues::find(const char* key) const { return CfDictionaryValue(values_, key); }

bool HasSyncAccount(DeviceHandle handle, const char* className) {
    CFTypeRef domain = CopyDomainValue(handle, nullptr, "com.apple.mobile.data_sync");
    if (!domain) return false;
    bool found = false;
    if (api().CFGetTypeID(domain) == kZebCFDictionaryTypeID) {
        CFIndex count = api().CFDictionaryGetCount(domain);
        std::vector<const void*> keys(count), values(count);
        api().CFDictionaryGetKeysAndValues(domain, keys.data(), values.data());
        for (CFIndex i = 0; i < count && !found; ++i) {
            if (!keys[i] || !values[i] || api().CFGetTypeID(values[i]) != kZebCFDictionaryTypeID) continue;
            char name[260] = {0};
            if (!api().CFStringGetCString(keys[i], name, sizeof name, kZebCFStringEncodingUTF8)) continue;
            CFIndex members = api().CFDictionaryGetCount(values[i]);
            std::vector<const void*> memberKeys(members), memberValues(members);
            api().CFDictionaryGetKeysAndValues(values[i], memberKeys.data(), memberValues.data());
            bool hasAccount = false;
            for (const void* member : memberValues)
                hasAccount |= member && api().CFGetTypeID(member) == kZebCFArrayTypeID && api().CFArrayGetCount(member) > 0;
            found = hasAccount && strcmp(name, className) == 0;
        }
    }
    api().CFRelease(domain);
    return found;
}

}  // namespace zeb
