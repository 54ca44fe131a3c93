#include "core/sync_generated_fields.h"

#include "core/sync_data_class.h"

namespace zsim {

namespace {
constexpr int64_t kUnixToPlistEpoch = 978307200;
}  // namespace

plist_t newSyncRecord(const char* entity) {
    plist_t record = plist_new_dict();
    plist_dict_set_item(record, kEntityNameKey, plist_new_string(entity));
    return record;
}

void setString(plist_t record, const char* key, const std::string& value) {
    plist_dict_set_item(record, key, plist_new_string(value.c_str()));
}

void setInteger(plist_t record, const char* key, int64_t value) {
    // Negative values travel as their two's complement, as the device's do.
    plist_dict_set_item(record, key, plist_new_uint(static_cast<uint64_t>(value)));
}

void setDate(plist_t record, const char* key, int64_t unixSeconds) {
    plist_dict_set_item(record, key, plist_new_date(static_cast<int32_t>(unixSeconds - kUnixToPlistEpoch), 0));
}

void setLink(plist_t record, const char* key, const std::string& id) {
    plist_t links = plist_new_array();
    plist_array_append_item(links, plist_new_string(id.c_str()));
    plist_dict_set_item(record, key, links);
}

std::string GeneratedIds::next(const std::string& prefix) {
    return ids_.take(prefix, 1, [](const std::string&) { return false; });
}

}  // namespace zsim
