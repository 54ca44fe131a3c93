#include "zeb_bplist_keys.h"

#include <cstring>
#include <vector>

namespace zebcf {

namespace {

constexpr size_t kTrailerSize = 32;

uint64_t bigEndian(const uint8_t* at, size_t size) {
    uint64_t value = 0;
    for (size_t i = 0; i < size; ++i) value = (value << 8) | at[i];
    return value;
}

struct BinaryList {
    const uint8_t* bytes;
    size_t length;
    size_t offsetSize;
    size_t refSize;
    uint64_t objects;
    uint64_t tableAt;

    // Where object `index` starts, or 0 when that is outside the list.
    size_t objectAt(uint64_t index) const {
        if (index >= objects) return 0;
        uint64_t at = bigEndian(bytes + tableAt + index * offsetSize, offsetSize);
        return at >= 8 && at < tableAt ? static_cast<size_t>(at) : 0;
    }

    // The element count of the object at `at` (its low nibble, or the
    // integer after the marker when the nibble is 15); `body` is where its
    // content starts. False when it runs outside the list.
    bool count(size_t at, uint64_t& value, size_t& body) const {
        value = bytes[at] & 0x0F;
        body = at + 1;
        if (value != 0x0F) return true;
        if (body >= length || (bytes[body] & 0xF0) != 0x10) return false;
        size_t size = size_t{1} << (bytes[body] & 0x0F);
        if (size > 8 || body + 1 + size > length) return false;
        value = bigEndian(bytes + body + 1, size);
        body += 1 + size;
        return true;
    }

    bool keyHasNul(uint64_t index) const {
        size_t at = objectAt(index);
        if (at == 0) return false;
        uint8_t type = bytes[at] >> 4;
        uint64_t units = 0;
        size_t body = 0;
        if ((type != 0x5 && type != 0x6) || !count(at, units, body)) return false;
        size_t unit = type == 0x6 ? 2 : 1;
        if (units > (length - body) / unit) return false;
        for (uint64_t i = 0; i < units; ++i) {
            const uint8_t* c = bytes + body + i * unit;
            if (c[0] == 0 && (unit == 1 || c[1] == 0)) return true;
        }
        return false;
    }
};

}  // namespace

bool BinaryKeysHaveNoNul(const uint8_t* bytes, size_t length) {
    if (length < 8 + kTrailerSize || memcmp(bytes, "bplist00", 8) != 0) return true;
    const uint8_t* trailer = bytes + length - kTrailerSize;
    BinaryList list{bytes, length, trailer[6], trailer[7], bigEndian(trailer + 8, 8), bigEndian(trailer + 24, 8)};
    if (list.offsetSize == 0 || list.offsetSize > 8 || list.refSize == 0 || list.refSize > 8) return true;
    const size_t tableRoom = length - kTrailerSize;
    if (list.tableAt >= tableRoom || list.objects > (tableRoom - list.tableAt) / list.offsetSize) return true;
    // Keys are marked first and each checked once: many dictionaries may
    // share one long key.
    std::vector<bool> usedAsKey(list.objects, false);
    for (uint64_t index = 0; index < list.objects; ++index) {
        size_t at = list.objectAt(index);
        if (at == 0 || (bytes[at] >> 4) != 0xD) continue;
        uint64_t entries = 0;
        size_t keys = 0;
        if (!list.count(at, entries, keys) || entries > (length - keys) / list.refSize) continue;
        for (uint64_t k = 0; k < entries; ++k) {
            uint64_t key = bigEndian(bytes + keys + k * list.refSize, list.refSize);
            if (key < list.objects) usedAsKey[key] = true;
        }
    }
    for (uint64_t index = 0; index < list.objects; ++index)
        if (usedAsKey[index] && list.keyHasNul(index)) return false;
    return true;
}

}  // namespace zebcf
