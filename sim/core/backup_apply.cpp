#include "core/backup_apply.h"

#include "core/app_catalog.h"
#include "core/app_registry.h"
#include "core/sync_store.h"

namespace zsim {
namespace {

void applyApps(const ServiceContext& ctx, plist_t applications, bool removeOthers) {
    std::vector<PlistPtr> apps;
    std::set<std::string> ids;
    if (applications && plist_get_node_type(applications) == PLIST_DICT) {
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(applications, &it);
        for (;;) {
            char* key = nullptr;
            plist_t entry = nullptr;
            plist_dict_next_item(applications, it, &key, &entry);
            if (!key) break;
            free(key);
            if (plist_get_node_type(entry) != PLIST_DICT) continue;
            if (PlistPtr app = appFromBackup(entry, ctx.profile)) {
                ids.insert(dictString(app.get(), "CFBundleIdentifier").value_or(""));
                apps.push_back(std::move(app));
            }
        }
        free(it);
    }
    AppRegistry& registry = appRegistryFor(ctx);
    const size_t installed = apps.size();
    registry.install(std::move(apps));
    // Each app posts what an install of it would.
    for (size_t i = 0; i < installed; ++i) registry.notifications().post("com.apple.mobile.application_installed");
    if (!removeOthers) return;
    for (size_t n = registry.removeUserAppsExcept(ids).size(); n > 0; --n)
        registry.notifications().post("com.apple.mobile.application_uninstalled");
}

void applyStores(const ServiceContext& ctx, const RestoreStaging& staging) {
    for (const auto& [cls, bytes] : staging.stores) {
        PlistPtr store = parsePlist(bytes.data(), bytes.size());
        if (plist_t records = dictDict(store.get(), "Records")) syncStoreFor(ctx, *cls).replace(records);
    }
}

}  // namespace

RestoreOptions restoreOptions(plist_t options) {
    RestoreOptions o;
    o.systemFiles = dictBool(options, "RestoreSystemFiles").value_or(o.systemFiles);
    o.preserveSettings = dictBool(options, "RestorePreserveSettings").value_or(o.preserveSettings);
    o.removeNotRestored = dictBool(options, "RemoveItemsNotRestored").value_or(o.removeNotRestored);
    return o;
}

void applyRestore(const ServiceContext& ctx, RestoreStaging& staging, plist_t manifest, const RestoreOptions& options) {
    applyMedia(ctx, staging, options.removeNotRestored);
    applyApps(ctx, plist_dict_get_item(manifest, "Applications"), options.removeNotRestored);
    if (options.systemFiles) applyStores(ctx, staging);
    if (!options.preserveSettings && ctx.setValue) {
        if (auto name = dictString(dictDict(manifest, "Lockdown"), "DeviceName")) {
            PlistPtr value = adopt(plist_new_string(name->c_str()));
            ctx.setValue("", "DeviceName", value.get());
        }
    }
}

}  // namespace zsim
