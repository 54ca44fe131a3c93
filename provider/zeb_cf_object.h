// The provider's small replacement of CF values: reference-counted objects
// behind the opaque CFTypeRef handles of the operation contract.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "zeb_mobile_device_api.h"

namespace zebcf {

struct Object {
    explicit Object(CFTypeID t) : type(t) {}
    virtual ~Object() = default;
    const CFTypeID type;
    std::atomic<int64_t> refs{1};
    // Interned strings and the two booleans live for the whole process.
    bool immortal = false;
};

struct String : Object {
    explicit String(std::string text) : Object(kZebCFStringTypeID), utf8(std::move(text)) {}
    std::string utf8;
};

struct Number : Object {
    static Number* Integer(int64_t v);
    static Number* Real(double v);
    Number() : Object(kZebCFNumberTypeID) {}
    CFIndex numberType = kZebCFNumberSInt64Type;  // 4 for integers, 6 for reals
    int64_t integer = 0;
    double real = 0;
};

struct BooleanValue : Object {
    explicit BooleanValue(bool v) : Object(kZebCFBooleanTypeID), value(v) { immortal = true; }
    const bool value;
};

struct Data : Object {
    Data() : Object(kZebCFDataTypeID) {}
    std::vector<uint8_t> bytes;
};

struct Date : Object {
    explicit Date(double t) : Object(kZebCFDateTypeID), absolute(t) {}
    double absolute;  // seconds since 2001-01-01 00:00:00 UTC
};

// Containers hold one reference on every member.
struct Array : Object {
    Array() : Object(kZebCFArrayTypeID) {}
    ~Array() override;
    std::mutex lock;
    std::vector<CFTypeRef> items;
};

struct Dictionary : Object {
    Dictionary() : Object(kZebCFDictionaryTypeID) {}
    ~Dictionary() override;
    std::mutex lock;
    std::vector<std::pair<CFTypeRef, CFTypeRef>> entries;  // in insertion order
    // The value for key, borrowed, or null. Caller holds `lock`.
    CFTypeRef FindLocked(CFTypeRef key) const;
};

struct WriteStream : Object {
    WriteStream() : Object(kZebCFWriteStreamTypeID) {}
    std::mutex lock;
    bool open = false;
    std::vector<uint8_t> written;
};

void Retain(CFTypeRef value);
void Release(CFTypeRef value);

// The object behind a handle if it is of the wanted kind, else null.
template <class T>
T* As(CFTypeRef value, CFTypeID type) {
    if (!value) return nullptr;
    auto* object = const_cast<Object*>(static_cast<const Object*>(value));
    return object->type == type ? static_cast<T*>(object) : nullptr;
}
inline String* AsString(CFTypeRef v) { return As<String>(v, kZebCFStringTypeID); }
inline Number* AsNumber(CFTypeRef v) { return As<Number>(v, kZebCFNumberTypeID); }
inline Data* AsData(CFTypeRef v) { return As<Data>(v, kZebCFDataTypeID); }
inline Array* AsArray(CFTypeRef v) { return As<Array>(v, kZebCFArrayTypeID); }
inline Dictionary* AsDictionary(CFTypeRef v) { return As<Dictionary>(v, kZebCFDictionaryTypeID); }

// Content equality, as dictionary keys compare.
bool Equal(CFTypeRef a, CFTypeRef b);

// The shared true and false values.
BooleanValue* TrueValue();
BooleanValue* FalseValue();

// An interned string, never freed.
String* Intern(const std::string& text);

}  // namespace zebcf
