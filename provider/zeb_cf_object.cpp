#include "zeb_cf_object.h"

#include <cmath>
#include <unordered_map>

namespace zebcf {

Number* Number::Integer(int64_t v) {
    auto* n = new Number();
    n->numberType = kZebCFNumberSInt64Type;
    n->integer = v;
    n->real = static_cast<double>(v);
    return n;
}

Number* Number::Real(double v) {
    auto* n = new Number();
    n->numberType = kZebCFNumberFloat64Type;
    n->real = v;
    n->integer = static_cast<int64_t>(v);
    return n;
}

Array::~Array() {
    for (CFTypeRef item : items) Release(item);
}

Dictionary::~Dictionary() {
    for (auto& [key, value] : entries) {
        Release(key);
        Release(value);
    }
}

CFTypeRef Dictionary::FindLocked(CFTypeRef key) const {
    for (const auto& [k, v] : entries) {
        if (Equal(k, key)) return v;
    }
    return nullptr;
}

void Retain(CFTypeRef value) {
    if (!value) return;
    auto* object = const_cast<Object*>(static_cast<const Object*>(value));
    if (!object->immortal) object->refs.fetch_add(1, std::memory_order_relaxed);
}

void Release(CFTypeRef value) {
    if (!value) return;
    auto* object = const_cast<Object*>(static_cast<const Object*>(value));
    if (object->immortal) return;
    if (object->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete object;
}

bool Equal(CFTypeRef a, CFTypeRef b) {
    if (a == b) return true;
    if (!a || !b) return false;
    auto* x = static_cast<const Object*>(a);
    auto* y = static_cast<const Object*>(b);
    if (x->type != y->type) return false;
    switch (x->type) {
        case kZebCFStringTypeID:
            return static_cast<const String*>(x)->utf8 == static_cast<const String*>(y)->utf8;
        case kZebCFNumberTypeID: {
            auto* m = static_cast<const Number*>(x);
            auto* n = static_cast<const Number*>(y);
            if (m->numberType == kZebCFNumberFloat64Type || n->numberType == kZebCFNumberFloat64Type)
                return m->real == n->real;
            return m->integer == n->integer;
        }
        case kZebCFDataTypeID:
            return static_cast<const Data*>(x)->bytes == static_cast<const Data*>(y)->bytes;
        case kZebCFDateTypeID:
            return static_cast<const Date*>(x)->absolute == static_cast<const Date*>(y)->absolute;
        default:
            return false;  // containers and streams compare by identity
    }
}

BooleanValue* TrueValue() {
    static auto* value = new BooleanValue(true);
    return value;
}

BooleanValue* FalseValue() {
    static auto* value = new BooleanValue(false);
    return value;
}

String* Intern(const std::string& text) {
    // Leaked on purpose: interned strings are handed out as constants.
    static auto* lock = new std::mutex();
    static auto* table = new std::unordered_map<std::string, String*>();
    std::lock_guard<std::mutex> hold(*lock);
    auto found = table->find(text);
    if (found != table->end()) return found->second;
    auto* s = new String(text);
    s->immortal = true;
    table->emplace(text, s);
    return s;
}

}  // namespace zebcf
