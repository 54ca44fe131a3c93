#include "diagnostics_relay_answers.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace zsim::diagnostics {
namespace {

// Up to a NUL inside, as a device reads it: libplist's copying getter
// aborts on one, and a host can send one.
std::string stringOf(plist_t node) {
    if (!node || plist_get_node_type(node) != PLIST_STRING) return {};
    uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    return text ? std::string(text, strnlen(text, length)) : std::string();
}

std::string stringItem(plist_t dict, const char* key) {
    plist_t node = dict && plist_get_node_type(dict) == PLIST_DICT ? plist_dict_get_item(dict, key) : nullptr;
    return stringOf(node);
}

plist_t dictItem(plist_t dict, const char* key) {
    plist_t node = dict && plist_get_node_type(dict) == PLIST_DICT ? plist_dict_get_item(dict, key) : nullptr;
    return node && plist_get_node_type(node) == PLIST_DICT ? node : nullptr;
}

plist_t status(const char* text) {
    plist_t d = plist_new_dict();
    plist_dict_set_item(d, "Status", plist_new_string(text));
    return d;
}

plist_t success(const char* key, plist_t payload) {
    plist_t d = status("Success");
    plist_t diag = plist_new_dict();
    plist_dict_set_item(diag, key, payload);
    plist_dict_set_item(d, "Diagnostics", diag);
    return d;
}

// An entry's properties as the device reports them; the profile may name
// the entry (e.g. "AppleSmartBattery") with a key that is not a property.
constexpr const char* kEntryNameKey = "IORegistryEntryName";

plist_t entryProperties(plist_t entry) {
    plist_t copy = plist_copy(entry);
    plist_dict_remove_item(copy, kEntryNameKey);
    return copy;
}

// Entries are keyed by class. A name matches a class too, since hosts ask
// for "IOPMPowerSource" by name as often as by class.
plist_t findEntry(plist_t registry, const std::string& entryClass, const std::string& entryName) {
    if (!registry) return nullptr;
    if (!entryClass.empty()) return dictItem(registry, entryClass.c_str());
    if (entryName.empty()) return nullptr;
    if (plist_t byClass = dictItem(registry, entryName.c_str())) return byClass;
    plist_dict_iter it = nullptr;
    plist_dict_new_iter(registry, &it);
    plist_t found = nullptr;
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(registry, it, &key, &value);
        if (!key) break;
        free(key);
        if (value && plist_get_node_type(value) == PLIST_DICT && stringItem(value, kEntryNameKey) == entryName) {
            found = value;
            break;
        }
    }
    free(it);
    return found;
}

// Devices since iOS 9.1 give nothing for planes or unknown entries, but
// still report success with an empty dictionary.
plist_t ioRegistry(plist_t request, plist_t profile) {
    plist_t registry = dictItem(profile, "IORegistry");
    plist_t entry = findEntry(registry, stringItem(request, "EntryClass"), stringItem(request, "EntryName"));
    return success("IORegistry", entry ? entryProperties(entry) : plist_new_dict());
}

void copyInteger(plist_t from, const char* fromKey, plist_t to, const char* toKey) {
    plist_t node = plist_dict_get_item(from, fromKey);
    if (node && plist_get_node_type(node) == PLIST_UINT) plist_dict_set_item(to, toKey, plist_copy(node));
}

// The gas gauge summarises the battery entry of the registry.
plist_t gasGauge(plist_t profile) {
    plist_t battery = dictItem(dictItem(profile, "IORegistry"), "IOPMPowerSource");
    if (!battery) return status("Failure");
    plist_t d = plist_new_dict();
    copyInteger(battery, "CycleCount", d, "CycleCount");
    copyInteger(battery, "DesignCapacity", d, "DesignCapacity");
    if (plist_dict_get_item(battery, "AppleRawMaxCapacity"))
        copyInteger(battery, "AppleRawMaxCapacity", d, "FullChargeCapacity");
    else
        copyInteger(battery, "NominalChargeCapacity", d, "FullChargeCapacity");
    plist_dict_set_item(d, "Status", plist_new_string("Success"));
    return d;
}

// NAND, WiFi and HDMI: a profile may describe them under "Diagnostics";
// otherwise the answer current devices give, which carries no data.
plist_t component(plist_t profile, const std::string& type) {
    if (plist_t given = dictItem(dictItem(profile, "Diagnostics"), type.c_str())) return plist_copy(given);
    plist_t d = status("Success");
    if (type == "WiFi") plist_dict_set_item(d, "Active", plist_new_string("true"));
    if (type == "HDMI") plist_dict_set_item(d, "Connection", plist_new_string("Unknown"));
    return d;
}

plist_t diagnosticsOf(const std::string& type, plist_t profile) {
    return type == "GasGauge" ? gasGauge(profile) : component(profile, type);
}

bool atLeast(const std::string& version, int major, int minor) {
    int a = 0, b = 0;
    if (std::sscanf(version.c_str(), "%d.%d", &a, &b) < 1) return false;
    return a > major || (a == major && b >= minor);
}

// Keys are looked up in the profile's "MobileGestalt" dictionary, then in
// its lockdown values; unknown keys are left out, as the device does.
plist_t mobileGestalt(plist_t request, plist_t profile) {
    plist_t keys = plist_dict_get_item(request, "MobileGestaltKeys");
    if (!keys || plist_get_node_type(keys) != PLIST_ARRAY) return status("Failure");
    plist_t values = dictItem(profile, "Values");
    plist_t d = plist_new_dict();
    if (atLeast(stringItem(values, "ProductVersion"), 17, 4)) {
        plist_dict_set_item(d, "Status", plist_new_string("MobileGestaltDeprecated"));
        return success("MobileGestalt", d);
    }
    plist_t gestalt = dictItem(profile, "MobileGestalt");
    for (uint32_t i = 0; i < plist_array_get_size(keys); ++i) {
        plist_t k = plist_array_get_item(keys, i);
        if (plist_get_node_type(k) != PLIST_STRING) continue;
        const std::string key = stringOf(k);
        const char* name = key.c_str();
        plist_t v = gestalt ? plist_dict_get_item(gestalt, name) : nullptr;
        if (!v && values) v = plist_dict_get_item(values, name);
        if (!v && std::strcmp(name, "PasswordConfigured") == 0)
            v = plist_new_bool(stringItem(profile, "Trust") == "password");
        else if (v)
            v = plist_copy(v);
        if (v) plist_dict_set_item(d, name, v);
    }
    plist_dict_set_item(d, "Status", plist_new_string("Success"));
    return success("MobileGestalt", d);
}

}  // namespace

Reply answerRequest(plist_t request, plist_t profile) {
    if (profile && plist_get_node_type(profile) != PLIST_DICT) profile = nullptr;
    const std::string name = stringItem(request, "Request");
    if (name == "Goodbye") return {status("Success"), true};
    if (name == "IORegistry") return {ioRegistry(request, profile), false};
    if (name == "MobileGestalt") return {mobileGestalt(request, profile), false};
    if (name == "GasGauge" || name == "NAND" || name == "WiFi" || name == "HDMI")
        return {success(name.c_str(), diagnosticsOf(name, profile)), false};
    if (name == "All") {
        plist_t all = plist_new_dict();
        for (const char* type : {"GasGauge", "HDMI", "NAND", "WiFi"})
            plist_dict_set_item(all, type, diagnosticsOf(type, profile));
        plist_t d = status("Success");
        plist_dict_set_item(d, "Diagnostics", all);
        return {d, false};
    }
    if (name == "Sleep") return {status("Success"), false};
    // The device restarts or powers off right after answering: the
    // connection ends with it.
    if (name == "Restart" || name == "Shutdown") return {status("Success"), true};
    return {status("UnknownRequest"), false};
}

}  // namespace zsim::diagnostics
