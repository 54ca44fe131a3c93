// Building blocks of made-up sync records: fields in the types the device
// sends them in (strings, integers, <date>s, links as arrays of ids), and
// ids that follow those the profile lists.
#pragma once

#include "core/plist_util.h"
#include "core/sync_record_ids.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace zsim {

plist_t newSyncRecord(const char* entity);
void setString(plist_t record, const char* key, const std::string& value);
void setInteger(plist_t record, const char* key, int64_t value);
// `unixSeconds` is UTC; a plist <date> counts from 2001-01-01.
void setDate(plist_t record, const char* key, int64_t unixSeconds);
void setLink(plist_t record, const char* key, const std::string& id);

// The length of a word list.
template <typename T, size_t N>
constexpr size_t countOf(const T (&)[N]) {
    return N;
}

// Fresh ids "<prefix>N" above every listed one of that prefix.
class GeneratedIds {
public:
    explicit GeneratedIds(const SyncRecordIds& listed) : ids_(listed) {}
    std::string next(const std::string& prefix);

private:
    SyncRecordIds ids_;
};

}  // namespace zsim
