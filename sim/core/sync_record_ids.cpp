#include "core/sync_record_ids.h"

#include <algorithm>

namespace zsim {

void SyncRecordIds::note(const std::string& id) {
    size_t digits = id.size();
    while (digits > 0 && id[digits - 1] >= '0' && id[digits - 1] <= '9') --digits;
    // Numbers too long for 64 bits are nobody's counter.
    if (digits == id.size() || id.size() - digits > 18) return;
    const uint64_t n = std::stoull(id.substr(digits));
    uint64_t& next = next_[id.substr(0, digits)];
    next = std::max(next, n + 1);
}

std::string SyncRecordIds::take(const std::string& prefix, uint64_t first,
                                const std::function<bool(const std::string&)>& taken) {
    uint64_t& next = next_[prefix];
    uint64_t n = std::max(next, first);
    std::string id = prefix + std::to_string(n);
    while (taken(id)) id = prefix + std::to_string(++n);
    next = n + 1;
    return id;
}

}  // namespace zsim
