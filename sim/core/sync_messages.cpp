#include "core/sync_messages.h"

#include <cstdlib>
#include <cstring>

namespace zsim {

namespace {
// Generous: host batches carry whole contacts with their photos.
constexpr uint32_t kMaxMessageBytes = 256u << 20;
}  // namespace

PlistPtr readSyncMessage(ServiceStream& stream, std::vector<char>& scratch) {
    unsigned char len[4];
    if (!stream.readExact(len, sizeof len)) return nullptr;
    const uint32_t size = uint32_t(len[0]) << 24 | uint32_t(len[1]) << 16 | uint32_t(len[2]) << 8 | len[3];
    if (size == 0 || size > kMaxMessageBytes) return nullptr;
    scratch.resize(size);
    if (!stream.readExact(scratch.data(), size)) return nullptr;
    PlistPtr message = parsePlist(scratch.data(), size);
    if (!message || plist_get_node_type(message.get()) != PLIST_ARRAY) return nullptr;
    plist_t name = plist_array_get_item(message.get(), 0);
    if (!name || plist_get_node_type(name) != PLIST_STRING) return nullptr;
    return message;
}

std::string encodeSyncFrame(plist_t message) {
    char* body = nullptr;  // plist_to_bin writes only into a null pointer
    uint32_t size = 0;
    plist_to_bin(message, &body, &size);
    if (!body) return std::string();
    std::string frame(4 + size, '\0');
    frame[0] = static_cast<char>(size >> 24);
    frame[1] = static_cast<char>(size >> 16);
    frame[2] = static_cast<char>(size >> 8);
    frame[3] = static_cast<char>(size);
    memcpy(frame.data() + 4, body, size);
    free(body);
    return frame;
}

std::string encodeSyncFrame(std::initializer_list<plist_t> elements) {
    PlistPtr message = adopt(plist_new_array());
    for (plist_t element : elements) plist_array_append_item(message.get(), element);
    return encodeSyncFrame(message.get());
}

// Length and body leave in one write: libimobiledevice reads the length
// with a single receive.
bool sendSyncFrame(ServiceStream& stream, const std::string& frame) {
    return !frame.empty() && stream.writeAll(frame.data(), frame.size());
}

std::string messageString(plist_t message, uint32_t index) {
    plist_t item = messageItem(message, index);
    if (!item || plist_get_node_type(item) != PLIST_STRING) return std::string();
    return plist_get_string_ptr(item, nullptr);
}

plist_t messageItem(plist_t message, uint32_t index) {
    if (!message || plist_get_node_type(message) != PLIST_ARRAY || index >= plist_array_get_size(message))
        return nullptr;
    return plist_array_get_item(message, index);
}

}  // namespace zsim
