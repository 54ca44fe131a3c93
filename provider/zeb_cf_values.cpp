// Strings, numbers, booleans, data, dates and the generic operations.
#include <sys/time.h>

#include <cstring>

#include "zeb_cf_object.h"
#include "zeb_exports.h"

using namespace zebcf;

namespace {

// Seconds between 1970-01-01 and 2001-01-01.
constexpr double kAbsoluteTimeEpoch = 978307200.0;

bool IsAscii(const std::string& text) {
    for (unsigned char c : text) {
        if (c >= 0x80) return false;
    }
    return true;
}

// Length in UTF-16 units; bytes that are not valid UTF-8 count one each.
CFIndex Utf16Length(const std::string& text) {
    CFIndex units = 0;
    size_t i = 0;
    while (i < text.size()) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        size_t width = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xe ? 3 : (c >> 3) == 0x1e ? 4 : 1;
        if (i + width > text.size()) width = 1;
        units += width == 4 ? 2 : 1;
        i += width;
    }
    return units;
}

std::string Latin1ToUtf8(const char* text) {
    std::string out;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
        if (*p < 0x80) {
            out += static_cast<char>(*p);
        } else {
            out += static_cast<char>(0xc0 | (*p >> 6));
            out += static_cast<char>(0x80 | (*p & 0x3f));
        }
    }
    return out;
}

}  // namespace

extern "C" {

const CFStringRef kCFStreamPropertyDataWritten = Intern("kCFStreamPropertyDataWritten");
const CFBooleanRef kCFBooleanTrue = TrueValue();

void CFRelease(CFTypeRef value) { Release(value); }

CFTypeID CFGetTypeID(CFTypeRef value) {
    return value ? static_cast<const Object*>(value)->type : 0;
}

CFStringRef __CFStringMakeConstantString(const char* text) {
    return text ? Intern(text) : nullptr;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* text, uint32_t encoding) {
    if (!text) return nullptr;
    if (encoding == kZebCFStringEncodingUTF8) return new String(text);
    if (encoding == kZebCFStringEncodingASCII) {
        std::string ascii(text);
        return IsAscii(ascii) ? new String(std::move(ascii)) : nullptr;
    }
    return new String(Latin1ToUtf8(text));  // other 8-bit encodings read as Latin-1
}

CFStringRef CFStringCreateCopy(CFAllocatorRef, CFStringRef value) {
    String* s = AsString(value);
    return s ? new String(s->utf8) : nullptr;
}

CFIndex CFStringGetLength(CFStringRef value) {
    String* s = AsString(value);
    return s ? Utf16Length(s->utf8) : 0;
}

Boolean CFStringGetCString(CFStringRef value, char* buffer, CFIndex size, uint32_t encoding) {
    String* s = AsString(value);
    if (!s || !buffer || size <= 0) return 0;
    if (encoding == kZebCFStringEncodingASCII && !IsAscii(s->utf8)) return 0;
    if (encoding != kZebCFStringEncodingASCII && encoding != kZebCFStringEncodingUTF8) return 0;
    if (static_cast<CFIndex>(s->utf8.size()) + 1 > size) return 0;
    std::memcpy(buffer, s->utf8.c_str(), s->utf8.size() + 1);
    return 1;
}

CFIndex CFNumberGetType(CFNumberRef value) {
    Number* n = AsNumber(value);
    return n ? n->numberType : 0;
}

CFIndex CFNumberGetByteSize(CFNumberRef value) { return AsNumber(value) ? 8 : 0; }

Boolean CFNumberGetValue(CFNumberRef value, CFIndex type, void* out) {
    Number* n = AsNumber(value);
    if (!n || !out) return 0;
    bool isReal = n->numberType == kZebCFNumberFloat64Type;
    // As CF does: the value is stored converted, and the answer says whether
    // the conversion was exact.
    switch (type) {
        case 1: case 7: {  // 8-bit
            auto v = static_cast<int8_t>(n->integer);
            std::memcpy(out, &v, sizeof v);
            return !isReal && v == n->integer;
        }
        case 2: case 8: {  // 16-bit
            auto v = static_cast<int16_t>(n->integer);
            std::memcpy(out, &v, sizeof v);
            return !isReal && v == n->integer;
        }
        case kZebCFNumberSInt32Type: case kZebCFNumberIntType: {
            auto v = static_cast<int32_t>(n->integer);
            std::memcpy(out, &v, sizeof v);
            return !isReal && v == n->integer;
        }
        case kZebCFNumberSInt64Type: case 10: case 11: {  // 64-bit, long, long long
            int64_t v = n->integer;
            std::memcpy(out, &v, sizeof v);
            return !isReal || static_cast<double>(v) == n->real;
        }
        case 5: case 12: {  // 32-bit float
            auto v = static_cast<float>(n->real);
            std::memcpy(out, &v, sizeof v);
            return 1;
        }
        case kZebCFNumberFloat64Type: case 13: {
            double v = n->real;
            std::memcpy(out, &v, sizeof v);
            return isReal || static_cast<int64_t>(v) == n->integer;
        }
        default:
            return 0;
    }
}

Boolean CFBooleanGetValue(CFBooleanRef value) {
    auto* b = As<BooleanValue>(value, kZebCFBooleanTypeID);
    return b && b->value ? 1 : 0;
}

CFDataRef CFDataCreate(CFAllocatorRef, const uint8_t* bytes, CFIndex length) {
    if (length < 0 || (length > 0 && !bytes)) return nullptr;
    auto* d = new Data();
    d->bytes.assign(bytes, bytes + length);
    return d;
}

CFDataRef CFDataCreateCopy(CFAllocatorRef, CFDataRef value) {
    Data* source = AsData(value);
    if (!source) return nullptr;
    auto* d = new Data();
    d->bytes = source->bytes;
    return d;
}

CFIndex CFDataGetLength(CFDataRef value) {
    Data* d = AsData(value);
    return d ? static_cast<CFIndex>(d->bytes.size()) : 0;
}

const uint8_t* CFDataGetBytePtr(CFDataRef value) {
    Data* d = AsData(value);
    if (!d) return nullptr;
    static const uint8_t kEmpty = 0;  // a valid pointer for empty data
    return d->bytes.empty() ? &kEmpty : d->bytes.data();
}

CFAbsoluteTime CFAbsoluteTimeGetCurrent() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + now.tv_usec / 1e6 - kAbsoluteTimeEpoch;
}

CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime seconds) { return new Date(seconds); }

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef value) {
    auto* d = As<Date>(value, kZebCFDateTypeID);
    return d ? d->absolute : 0;
}

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef, CFIndex, Boolean) {
    return nullptr;  // no caller needs URLs
}

}  // extern "C"
