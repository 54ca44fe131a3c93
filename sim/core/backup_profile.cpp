#include "core/backup_profile.h"

#include "core/plist_util.h"

namespace zsim {
namespace {

// Percentages may be written as integers or reals.
std::optional<double> number(plist_t dict, const char* key) {
    plist_t n = dict ? plist_dict_get_item(dict, key) : nullptr;
    if (!n) return std::nullopt;
    if (plist_get_node_type(n) == PLIST_REAL) {
        double v = 0;
        plist_get_real_val(n, &v);
        return v;
    }
    if (plist_get_node_type(n) == PLIST_UINT) {
        uint64_t v = 0;
        plist_get_uint_val(n, &v);
        return static_cast<double>(v);
    }
    return std::nullopt;
}

}  // namespace

BackupProfile backupProfile(plist_t profile) {
    BackupProfile settings;
    plist_t backup = dictDict(profile, "Backup");
    if (dictString(backup, "Content").value_or("small") == "large") settings.content = BackupContentKind::Large;
    settings.failAtPercent = number(backup, "FailAtPercent");
    settings.dropAtPercent = number(backup, "DropAtPercent");
    if (auto delay = number(backup, "PageDelayMilliseconds"); delay && *delay > 0)
        settings.pageDelayMilliseconds = static_cast<unsigned>(*delay);
    return settings;
}

}  // namespace zsim
