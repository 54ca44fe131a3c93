#include "plist_frames.h"

#include <cstdlib>
#include <vector>

namespace wiretest {

bool sendPlist(ServiceRun& run, plist_t message, Endian endian, bool binary) {
    char* body = nullptr;
    uint32_t size = 0;
    if (binary)
        plist_to_bin(message, &body, &size);
    else
        plist_to_xml(message, &body, &size);
    unsigned char len[4];
    for (int i = 0; i < 4; ++i) {
        const int shift = endian == Endian::Big ? 8 * (3 - i) : 8 * i;
        len[i] = static_cast<unsigned char>(size >> shift);
    }
    const bool ok = run.sendAll(len, 4) && run.sendAll(body, size);
    free(body);
    return ok;
}

plist_t receivePlist(ServiceRun& run, Endian endian, int timeoutMs, bool* binary) {
    unsigned char len[4];
    if (!run.recvExact(len, 4, timeoutMs)) return nullptr;
    uint32_t size = 0;
    for (int i = 0; i < 4; ++i) {
        const int shift = endian == Endian::Big ? 8 * (3 - i) : 8 * i;
        size |= uint32_t(len[i]) << shift;
    }
    std::vector<char> body(size);
    if (!run.recvExact(body.data(), size, timeoutMs)) return nullptr;
    if (binary) *binary = plist_is_binary(body.data(), size);
    plist_t out = nullptr;
    plist_from_memory(body.data(), size, &out);
    return out;
}

std::string stringAt(plist_t dict, const char* key) {
    plist_t n = dict ? plist_dict_get_item(dict, key) : nullptr;
    if (!n || plist_get_node_type(n) != PLIST_STRING) return "<missing>";
    char* s = nullptr;
    plist_get_string_val(n, &s);
    std::string out = s;
    free(s);
    return out;
}

uint64_t uintAt(plist_t dict, const char* key) {
    plist_t n = dict ? plist_dict_get_item(dict, key) : nullptr;
    uint64_t v = ~0ull;
    if (n && plist_get_node_type(n) == PLIST_UINT) plist_get_uint_val(n, &v);
    return v;
}

plist_t dictFromXml(const std::string& xml) {
    plist_t out = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &out);
    return out;
}

}  // namespace wiretest
