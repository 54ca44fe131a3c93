// Device-chosen record identifiers: a prefix and a number ("12",
// "Group/3", "3/12/0", "ev-7"). The next number for each prefix is one past
// the highest seen, so an id once handed out is not reused while the store
// holds a record with a higher one.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

namespace zsim {

class SyncRecordIds {
public:
    // Remembers an id that is in use.
    void note(const std::string& id);
    // A fresh id `prefix` + number, at least `first`, for which `taken` is false.
    std::string take(const std::string& prefix, uint64_t first, const std::function<bool(const std::string&)>& taken);
    void clear() { next_.clear(); }

private:
    std::unordered_map<std::string, uint64_t> next_;
};

}  // namespace zsim
