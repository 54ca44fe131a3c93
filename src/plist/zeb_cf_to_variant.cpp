// Lockdown values from CF to the value tree. Strings go through a 260-byte
// ASCII conversion, so text beyond ASCII or that long is left out: callers
// that need such text read it as UTF-8 with the string helper instead.
#include <cstdio>

#include "zeb_mobile_export_fun.h"
#include "zeb_plist_bridge.h"

namespace {

constexpr CFIndex kStringBuffer = 260;

bool StringText(CMobileExportFun& cf, CFTypeRef value, std::string& out) {
    char buffer[kStringBuffer] = {};
    if (!cf.CFStringGetCString(value, buffer, kStringBuffer, kZebCFStringEncodingASCII)) return false;
    out = buffer;
    return true;
}

struct ApplyContext {
    CMobileExportFun* cf;
    CIOSDictionary* dictionary;
};

void AddEntry(const void* key, const void* value, void* context) {
    auto* c = static_cast<ApplyContext*>(context);
    std::string keyText;
    if (!key || c->cf->CFGetTypeID(key) != kZebCFStringTypeID || !StringText(*c->cf, key, keyText)) return;
    PlistVariant converted;
    if (CfToVariant(value, converted)) c->dictionary->Insert(keyText, std::move(converted));
}

}  // namespace

bool CfToVariant(CFTypeRef value, PlistVariant& variant) {
    auto& cf = CMobileExportFun::GetInstance();
    variant.clear();
    if (!cf.initialised || !value) return false;
    switch (cf.CFGetTypeID(value)) {
        case kZebCFStringTypeID: {
            std::string text;
            if (!StringText(cf, value, text)) return false;
            variant = PlistVariant::String(std::move(text));
            return true;
        }
        case kZebCFDictionaryTypeID: {
            auto dictionary = std::make_shared<CIOSDictionary>();
            ApplyContext context{&cf, dictionary.get()};
            cf.CFDictionaryApplyFunction(value, AddEntry, &context);
            variant = PlistVariant::Dictionary(std::move(dictionary));
            return true;
        }
        case kZebCFArrayTypeID: {
            PlistVariant::Array items;
            CFIndex count = cf.CFArrayGetCount(value);
            for (CFIndex i = 0; i < count; ++i) {
                PlistVariant item;
                if (CfToVariant(cf.CFArrayGetValueAtIndex(value, i), item)) items.push_back(std::move(item));
            }
            variant = PlistVariant::MakeArray(std::move(items));
            return true;
        }
        case kZebCFDataTypeID: {
            const uint8_t* bytes = cf.CFDataGetBytePtr(value);
            if (!bytes) return false;
            CFIndex length = cf.CFDataGetLength(value);
            std::string hex;
            hex.reserve(static_cast<size_t>(length) * 2);
            char pair[3];
            for (CFIndex i = 0; i < length; ++i) {
                std::snprintf(pair, sizeof pair, "%02X", bytes[i]);
                hex += pair;
            }
            variant = PlistVariant::String(std::move(hex));
            return true;
        }
        case kZebCFBooleanTypeID:
            variant = PlistVariant::Bool(cf.CFBooleanGetValue(value) != 0);
            return true;
        case kZebCFNumberTypeID: {
            CFIndex type = cf.CFNumberGetType(value);
            if (type == kZebCFNumberSInt32Type || type == kZebCFNumberIntType) {
                int32_t v = 0;
                cf.CFNumberGetValue(value, kZebCFNumberSInt32Type, &v);
                variant = PlistVariant::Int32(v);
            } else if (type == kZebCFNumberSInt64Type) {
                int64_t v = 0;
                cf.CFNumberGetValue(value, kZebCFNumberSInt64Type, &v);
                variant = PlistVariant::Int64(v);
            } else if (type == kZebCFNumberFloat64Type) {
                double v = 0;
                cf.CFNumberGetValue(value, kZebCFNumberFloat64Type, &v);
                variant = PlistVariant::Double(v);
            } else {
                return false;
            }
            return true;
        }
        default:
            return false;
    }
}
