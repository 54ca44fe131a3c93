// Arrays and dictionaries. Both retain what they hold, whatever callbacks
// the caller names, so that a caller may release a value after adding it.
#include "zeb_cf_object.h"
#include "zeb_exports.h"

using namespace zebcf;

extern "C" {

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex, const void*) { return new Array(); }

CFIndex CFArrayGetCount(CFArrayRef value) {
    Array* a = AsArray(value);
    if (!a) return 0;
    std::lock_guard<std::mutex> hold(a->lock);
    return static_cast<CFIndex>(a->items.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef value, CFIndex index) {
    Array* a = AsArray(value);
    if (!a || index < 0) return nullptr;
    std::lock_guard<std::mutex> hold(a->lock);
    return index < static_cast<CFIndex>(a->items.size()) ? a->items[index] : nullptr;
}

void CFArrayAppendValue(CFMutableArrayRef value, const void* item) {
    Array* a = AsArray(value);
    if (!a || !item) return;
    Retain(item);
    std::lock_guard<std::mutex> hold(a->lock);
    a->items.push_back(item);
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef value, CFIndex index) {
    Array* a = AsArray(value);
    if (!a || index < 0) return;
    CFTypeRef removed = nullptr;
    {
        std::lock_guard<std::mutex> hold(a->lock);
        if (index >= static_cast<CFIndex>(a->items.size())) return;
        removed = a->items[index];
        a->items.erase(a->items.begin() + index);
    }
    Release(removed);
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex, const void*, const void*) {
    return new Dictionary();
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values, CFIndex count,
                                   const void*, const void*) {
    auto* d = new Dictionary();
    for (CFIndex i = 0; i < count && keys && values; ++i) {
        if (!keys[i] || !values[i] || d->FindLocked(keys[i])) continue;
        Retain(keys[i]);
        Retain(values[i]);
        d->entries.emplace_back(keys[i], values[i]);
    }
    return d;
}

void CFDictionaryAddValue(CFMutableDictionaryRef value, const void* key, const void* item) {
    Dictionary* d = AsDictionary(value);
    if (!d || !key || !item) return;
    std::lock_guard<std::mutex> hold(d->lock);
    if (d->FindLocked(key)) return;  // adding never replaces
    Retain(key);
    Retain(item);
    d->entries.emplace_back(key, item);
}

const void* CFDictionaryGetValue(CFDictionaryRef value, const void* key) {
    Dictionary* d = AsDictionary(value);
    if (!d || !key) return nullptr;
    std::lock_guard<std::mutex> hold(d->lock);
    return d->FindLocked(key);
}

Boolean CFDictionaryContainsKey(CFDictionaryRef value, const void* key) {
    return CFDictionaryGetValue(value, key) ? 1 : 0;
}

Boolean CFDictionaryContainsValue(CFDictionaryRef value, const void* item) {
    Dictionary* d = AsDictionary(value);
    if (!d || !item) return 0;
    std::lock_guard<std::mutex> hold(d->lock);
    for (auto& entry : d->entries) {
        if (Equal(entry.second, item)) return 1;
    }
    return 0;
}

CFIndex CFDictionaryGetCount(CFDictionaryRef value) {
    Dictionary* d = AsDictionary(value);
    if (!d) return 0;
    std::lock_guard<std::mutex> hold(d->lock);
    return static_cast<CFIndex>(d->entries.size());
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef value, const void** keys, const void** values) {
    Dictionary* d = AsDictionary(value);
    if (!d) return;
    std::lock_guard<std::mutex> hold(d->lock);
    for (size_t i = 0; i < d->entries.size(); ++i) {
        if (keys) keys[i] = d->entries[i].first;
        if (values) values[i] = d->entries[i].second;
    }
}

void CFDictionaryApplyFunction(CFDictionaryRef value, CFDictionaryApplierFunction function, void* context) {
    Dictionary* d = AsDictionary(value);
    if (!d || !function) return;
    // Walk a snapshot so that the applier may use the dictionary itself.
    std::vector<std::pair<CFTypeRef, CFTypeRef>> snapshot;
    {
        std::lock_guard<std::mutex> hold(d->lock);
        snapshot = d->entries;
    }
    for (auto& [k, v] : snapshot) function(k, v, context);
}

}  // extern "C"
