#include "core/plist_util.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <system_error>

namespace zsim {

std::optional<std::string> stringValue(plist_t node) {
    if (!node || plist_get_node_type(node) != PLIST_STRING) return std::nullopt;
    uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    if (!text) return std::string();
    return std::string(text, strnlen(text, length));
}

std::optional<std::string> dictString(plist_t dict, const char* key) {
    if (!dict || plist_get_node_type(dict) != PLIST_DICT) return std::nullopt;
    return stringValue(plist_dict_get_item(dict, key));
}

std::optional<uint64_t> dictUInt(plist_t dict, const char* key) {
    if (!dict || plist_get_node_type(dict) != PLIST_DICT) return std::nullopt;
    plist_t n = plist_dict_get_item(dict, key);
    if (!n || plist_get_node_type(n) != PLIST_UINT) return std::nullopt;
    uint64_t v = 0;
    plist_get_uint_val(n, &v);
    return v;
}

std::optional<bool> dictBool(plist_t dict, const char* key) {
    if (!dict || plist_get_node_type(dict) != PLIST_DICT) return std::nullopt;
    plist_t n = plist_dict_get_item(dict, key);
    if (!n || plist_get_node_type(n) != PLIST_BOOLEAN) return std::nullopt;
    uint8_t v = 0;
    plist_get_bool_val(n, &v);
    return v != 0;
}

std::optional<std::vector<char>> dictData(plist_t dict, const char* key) {
    if (!dict || plist_get_node_type(dict) != PLIST_DICT) return std::nullopt;
    plist_t n = plist_dict_get_item(dict, key);
    if (!n || plist_get_node_type(n) != PLIST_DATA) return std::nullopt;
    char* d = nullptr;
    uint64_t len = 0;
    plist_get_data_val(n, &d, &len);
    std::vector<char> out(d, d + len);
    free(d);
    return out;
}

plist_t dictDict(plist_t dict, const char* key) {
    if (!dict || plist_get_node_type(dict) != PLIST_DICT) return nullptr;
    plist_t n = plist_dict_get_item(dict, key);
    return (n && plist_get_node_type(n) == PLIST_DICT) ? n : nullptr;
}

PlistPtr parsePlist(const char* data, size_t size) {
    if (!data || size < 8 || size > 0xFFFFFFFFu) return nullptr;
    plist_t p = nullptr;
    if (plist_is_binary(data, static_cast<uint32_t>(size))) {
        plist_from_bin(data, static_cast<uint32_t>(size), &p);
    } else {
        plist_from_xml(data, static_cast<uint32_t>(size), &p);
    }
    return adopt(p);
}

std::string toXml(plist_t p) {
    char* xml = nullptr;
    uint32_t len = 0;
    plist_to_xml(p, &xml, &len);
    std::string out(xml ? xml : "", len);
    free(xml);
    return out;
}

std::string toBinary(plist_t p) {
    char* bin = nullptr;
    uint32_t len = 0;
    plist_to_bin(p, &bin, &len);
    std::string out(bin ? bin : "", len);
    free(bin);
    return out;
}

PlistPtr readPlistFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return nullptr;
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return parsePlist(bytes.data(), bytes.size());
}

bool writePlistFile(const std::filesystem::path& file, plist_t p) {
    std::error_code ec;
    std::filesystem::create_directories(file.parent_path(), ec);
    auto tmp = file;
    tmp += ".tmp";
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        if (!out) return false;
        std::string xml = toXml(p);
        out.write(xml.data(), static_cast<std::streamsize>(xml.size()));
        if (!out) return false;
    }
    std::filesystem::rename(tmp, file, ec);
    return !ec;
}

void mergeDict(plist_t into, plist_t from) {
    if (!into || !from || plist_get_node_type(from) != PLIST_DICT) return;
    plist_dict_iter it = nullptr;
    plist_dict_new_iter(from, &it);
    for (;;) {
        char* key = nullptr;
        plist_t val = nullptr;
        plist_dict_next_item(from, it, &key, &val);
        if (!key) break;
        plist_dict_set_item(into, key, plist_copy(val));
        free(key);
    }
    free(it);
}

}  // namespace zsim
