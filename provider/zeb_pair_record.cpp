#include "zeb_pair_record.h"

#include <plist/plist.h>
#include <usbmuxd.h>

#include <cstdlib>

namespace zebprov {

std::string ReadPairedHostId(const std::string& udid) {
    char* bytes = nullptr;
    uint32_t length = 0;
    if (usbmuxd_read_pair_record(udid.c_str(), &bytes, &length) != 0 || !bytes) return {};
    plist_t record = nullptr;
    plist_from_memory(bytes, length, &record);
    free(bytes);
    if (!record) return {};
    std::string hostId;
    plist_t node = plist_get_node_type(record) == PLIST_DICT ? plist_dict_get_item(record, "HostID") : nullptr;
    if (node && plist_get_node_type(node) == PLIST_STRING) {
        char* text = nullptr;
        plist_get_string_val(node, &text);
        if (text) hostId = text;
        free(text);
    }
    plist_free(record);
    return hostId;
}

}  // namespace zebprov
