#include "zeb_cf_plist.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "zeb_cf_object.h"

namespace zebcf {

namespace {

constexpr int kMaxDepth = 256;  // deeper trees are refused, not recursed into

CFTypeRef FromPlistAt(plist_t node, int depth) {
    if (!node || depth > kMaxDepth) return nullptr;
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            uint8_t v = 0;
            plist_get_bool_val(node, &v);
            return v ? TrueValue() : FalseValue();
        }
        case PLIST_UINT: {
            uint64_t v = 0;
            plist_get_uint_val(node, &v);
            return Number::Integer(static_cast<int64_t>(v));
        }
        case PLIST_UID: {
            uint64_t v = 0;
            plist_get_uid_val(node, &v);
            return Number::Integer(static_cast<int64_t>(v));
        }
        case PLIST_REAL: {
            double v = 0;
            plist_get_real_val(node, &v);
            return Number::Real(v);
        }
        case PLIST_STRING:
        case PLIST_KEY: {
            uint64_t length = 0;
            const char* text = plist_get_node_type(node) == PLIST_STRING ? plist_get_string_ptr(node, &length)
                                                                          : nullptr;
            if (text) return new String(std::string(text, length));
            char* owned = nullptr;
            plist_get_key_val(node, &owned);
            auto* s = new String(owned ? owned : "");
            free(owned);
            return s;
        }
        case PLIST_DATA: {
            uint64_t length = 0;
            const char* bytes = plist_get_data_ptr(node, &length);
            auto* d = new Data();
            if (bytes) d->bytes.assign(bytes, bytes + length);
            return d;
        }
        case PLIST_DATE: {
            int32_t sec = 0, usec = 0;
            plist_get_date_val(node, &sec, &usec);
            return new Date(sec + usec / 1e6);
        }
        case PLIST_ARRAY: {
            auto* a = new Array();
            uint32_t n = plist_array_get_size(node);
            for (uint32_t i = 0; i < n; ++i) {
                CFTypeRef item = FromPlistAt(plist_array_get_item(node, i), depth + 1);
                if (item) a->items.push_back(item);
            }
            return a;
        }
        case PLIST_DICT: {
            auto* d = new Dictionary();
            plist_dict_iter it = nullptr;
            plist_dict_new_iter(node, &it);
            while (it) {
                char* key = nullptr;
                plist_t value = nullptr;
                plist_dict_next_item(node, it, &key, &value);
                if (!key) break;
                CFTypeRef item = FromPlistAt(value, depth + 1);
                if (item) d->entries.emplace_back(new String(key), item);
                free(key);
            }
            free(it);
            return d;
        }
        default:
            return nullptr;
    }
}

plist_t ToPlistAt(CFTypeRef value, int depth) {
    if (!value || depth > kMaxDepth) return nullptr;
    auto* object = static_cast<const Object*>(value);
    switch (object->type) {
        case kZebCFStringTypeID:
            return plist_new_string(static_cast<const String*>(object)->utf8.c_str());
        case kZebCFBooleanTypeID:
            return plist_new_bool(static_cast<const BooleanValue*>(object)->value ? 1 : 0);
        case kZebCFNumberTypeID: {
            auto* n = static_cast<const Number*>(object);
            if (n->numberType == kZebCFNumberFloat64Type) return plist_new_real(n->real);
            return plist_new_uint(static_cast<uint64_t>(n->integer));
        }
        case kZebCFDataTypeID: {
            auto* d = static_cast<const Data*>(object);
            return plist_new_data(reinterpret_cast<const char*>(d->bytes.data()), d->bytes.size());
        }
        case kZebCFDateTypeID: {
            double t = static_cast<const Date*>(object)->absolute;
            double whole = std::floor(t);
            return plist_new_date(static_cast<int32_t>(whole), static_cast<int32_t>((t - whole) * 1e6));
        }
        case kZebCFArrayTypeID: {
            auto* a = const_cast<Array*>(static_cast<const Array*>(object));
            std::vector<CFTypeRef> items;
            {
                std::lock_guard<std::mutex> hold(a->lock);
                items = a->items;
            }
            plist_t out = plist_new_array();
            for (CFTypeRef item : items) {
                plist_t child = ToPlistAt(item, depth + 1);
                if (!child) {
                    plist_free(out);
                    return nullptr;
                }
                plist_array_append_item(out, child);
            }
            return out;
        }
        case kZebCFDictionaryTypeID: {
            auto* d = const_cast<Dictionary*>(static_cast<const Dictionary*>(object));
            std::vector<std::pair<CFTypeRef, CFTypeRef>> entries;
            {
                std::lock_guard<std::mutex> hold(d->lock);
                entries = d->entries;
            }
            std::vector<std::pair<std::string, CFTypeRef>> sorted;
            for (auto& [k, v] : entries) {
                String* key = AsString(k);
                if (!key) return nullptr;  // property lists have string keys only
                sorted.emplace_back(key->utf8, v);
            }
            std::sort(sorted.begin(), sorted.end(),
                      [](const auto& x, const auto& y) { return x.first < y.first; });
            plist_t out = plist_new_dict();
            for (auto& [key, v] : sorted) {
                plist_t child = ToPlistAt(v, depth + 1);
                if (!child) {
                    plist_free(out);
                    return nullptr;
                }
                plist_dict_set_item(out, key.c_str(), child);
            }
            return out;
        }
        default:
            return nullptr;
    }
}

}  // namespace

CFTypeRef FromPlist(plist_t node) { return FromPlistAt(node, 0); }

plist_t ToPlist(CFTypeRef value) { return ToPlistAt(value, 0); }

}  // namespace zebcf
