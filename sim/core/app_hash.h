// A hash that is the same on every run and build (unlike std::hash), for
// values the simulator derives from names: icons, container UUIDs, sizes.
#pragma once

#include <cstdint>
#include <string>

namespace zsim {

inline uint64_t stableHash(const std::string& text) {
    uint64_t h = 1469598103934665603ull;  // FNV-1a
    for (unsigned char c : text) {
        h ^= c;
        h *= 1099511628211ull;
    }
    return h;
}

}  // namespace zsim
