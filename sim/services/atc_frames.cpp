#include "atc_frames.h"

#include <algorithm>
#include <cstdlib>

namespace zsim::atc {

plist_t readMessage(ServiceStream& stream, std::vector<char>& scratch) {
    unsigned char len[4];
    if (!stream.readExact(len, sizeof len)) return nullptr;
    const uint32_t size = uint32_t(len[0]) | uint32_t(len[1]) << 8 | uint32_t(len[2]) << 16 | uint32_t(len[3]) << 24;
    if (size == 0 || size > kMaxMessage) return nullptr;
    scratch.resize(size);
    if (!stream.readExact(scratch.data(), size)) return nullptr;
    plist_t message = nullptr;
    plist_from_memory(scratch.data(), size, &message);
    if (message && plist_get_node_type(message) != PLIST_DICT) {
        plist_free(message);
        return nullptr;
    }
    return message;
}

bool MessageWriter::send(plist_t message) {
    char* body = nullptr;
    uint32_t size = 0;
    plist_to_bin(message, &body, &size);
    if (!body) return false;
    std::vector<unsigned char> frame(4 + size);
    for (int i = 0; i < 4; ++i) frame[i] = static_cast<unsigned char>(size >> (8 * i));
    std::copy(body, body + size, frame.begin() + 4);
    free(body);
    std::lock_guard<std::mutex> lock(mutex_);
    return stream_.writeAll(frame.data(), frame.size());
}

plist_t makeMessage(const char* command, plist_t params) {
    plist_t m = plist_new_dict();
    plist_dict_set_item(m, "Command", plist_new_string(command));
    plist_dict_set_item(m, "Params", params ? params : plist_new_dict());
    plist_dict_set_item(m, "Session", plist_new_uint(0));
    return m;
}

}  // namespace zsim::atc
