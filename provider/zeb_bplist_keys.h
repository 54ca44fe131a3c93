// A check made before libplist reads a binary property list from a device:
// libplist (2.2) aborts when a dictionary key holds a NUL character, so such
// a list is refused before it gets there.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zebcf {

// False when `bytes` is a binary property list with a dictionary key that
// has a NUL inside. Anything else, broken lists included, is left to the
// parser and gives true.
bool BinaryKeysHaveNoNul(const uint8_t* bytes, size_t length);

}  // namespace zebcf
