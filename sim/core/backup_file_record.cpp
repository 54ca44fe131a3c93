#include "core/backup_file_record.h"

#include "core/plist_util.h"

namespace zsim {
namespace {

constexpr uint64_t kModeFile = 0100644;
constexpr uint64_t kModeFolder = 040755;
constexpr uint64_t kMobileUser = 501;
constexpr uint64_t kProtectionUntilFirstUnlock = 3;

plist_t classEntry() {
    plist_t c = plist_new_dict();
    plist_t names = plist_new_array();
    plist_array_append_item(names, plist_new_string("MBFile"));
    plist_array_append_item(names, plist_new_string("NSObject"));
    plist_dict_set_item(c, "$classes", names);
    plist_dict_set_item(c, "$classname", plist_new_string("MBFile"));
    return c;
}

}  // namespace

std::string archiveFileRecord(const BackupItem& item, uint64_t inode) {
    // $objects: the null marker, the record, its path string, its class.
    plist_t record = plist_new_dict();
    plist_dict_set_item(record, "$class", plist_new_uid(3));
    plist_dict_set_item(record, "RelativePath", plist_new_uid(2));
    plist_dict_set_item(record, "Size", plist_new_uint(item.size));
    plist_dict_set_item(record, "Mode", plist_new_uint(item.directory ? kModeFolder : kModeFile));
    plist_dict_set_item(record, "UserID", plist_new_uint(kMobileUser));
    plist_dict_set_item(record, "GroupID", plist_new_uint(kMobileUser));
    plist_dict_set_item(record, "LastModified", plist_new_uint(static_cast<uint64_t>(item.modified)));
    plist_dict_set_item(record, "LastStatusChange", plist_new_uint(static_cast<uint64_t>(item.modified)));
    plist_dict_set_item(record, "Birth", plist_new_uint(static_cast<uint64_t>(item.modified)));
    plist_dict_set_item(record, "InodeNumber", plist_new_uint(inode));
    plist_dict_set_item(record, "ProtectionClass", plist_new_uint(item.directory ? 0 : kProtectionUntilFirstUnlock));
    plist_dict_set_item(record, "Flags", plist_new_uint(0));

    plist_t objects = plist_new_array();
    plist_array_append_item(objects, plist_new_string("$null"));
    plist_array_append_item(objects, record);
    plist_array_append_item(objects, plist_new_string(item.relativePath.c_str()));
    plist_array_append_item(objects, classEntry());

    PlistPtr archive = adopt(plist_new_dict());
    plist_dict_set_item(archive.get(), "$version", plist_new_uint(100000));
    plist_dict_set_item(archive.get(), "$archiver", plist_new_string("NSKeyedArchiver"));
    plist_t top = plist_new_dict();
    plist_dict_set_item(top, "root", plist_new_uid(1));
    plist_dict_set_item(archive.get(), "$top", top);
    plist_dict_set_item(archive.get(), "$objects", objects);
    return toBinary(archive.get());
}

std::optional<uint64_t> archivedFileSize(const void* blob, size_t size) {
    PlistPtr archive = parsePlist(static_cast<const char*>(blob), size);
    plist_t objects = archive ? plist_dict_get_item(archive.get(), "$objects") : nullptr;
    if (!objects || plist_get_node_type(objects) != PLIST_ARRAY || plist_array_get_size(objects) < 2) return std::nullopt;
    return dictUInt(plist_array_get_item(objects, 1), "Size");
}

}  // namespace zsim
