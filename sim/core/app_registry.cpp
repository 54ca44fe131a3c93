#include "core/app_registry.h"

#include "core/app_catalog.h"

#include <map>
#include <memory>

namespace zsim {
namespace fs = std::filesystem;

AppRegistry::AppRegistry(fs::path stateFile, plist_t profile) : stateFile_(std::move(stateFile)) {
    PlistPtr saved = stateFile_.empty() ? nullptr : readPlistFile(stateFile_);
    plist_t savedApps = saved ? plist_dict_get_item(saved.get(), "Apps") : nullptr;
    if (savedApps && plist_get_node_type(savedApps) == PLIST_ARRAY) {
        for (uint32_t i = 0; i < plist_array_get_size(savedApps); ++i) {
            plist_t app = plist_array_get_item(savedApps, i);
            if (plist_get_node_type(app) == PLIST_DICT && dictString(app, "CFBundleIdentifier"))
                apps_.push_back(adopt(plist_copy(app)));
        }
        plist_t savedArchives = dictDict(saved.get(), "Archives");
        archives_ = adopt(savedArchives ? plist_copy(savedArchives) : plist_new_dict());
        return;
    }
    apps_ = appsFromProfile(profile);
    archives_ = adopt(plist_new_dict());
}

void AppRegistry::save() {
    if (stateFile_.empty()) return;
    PlistPtr state = adopt(plist_new_dict());
    plist_t list = plist_new_array();
    for (auto& app : apps_) plist_array_append_item(list, plist_copy(app.get()));
    plist_dict_set_item(state.get(), "Apps", list);
    plist_dict_set_item(state.get(), "Archives", plist_copy(archives_.get()));
    writePlistFile(stateFile_, state.get());
}

void AppRegistry::forEach(const std::function<void(plist_t)>& fn) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& app : apps_) fn(app.get());
}

size_t AppRegistry::count() {
    std::lock_guard<std::mutex> lock(mutex_);
    return apps_.size();
}

PlistPtr AppRegistry::find(const std::string& id) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& app : apps_)
        if (dictString(app.get(), "CFBundleIdentifier") == id) return adopt(plist_copy(app.get()));
    return nullptr;
}

void AppRegistry::put(PlistPtr app) {
    const auto id = dictString(app.get(), "CFBundleIdentifier");
    for (auto& existing : apps_) {
        if (dictString(existing.get(), "CFBundleIdentifier") == id) {
            existing = std::move(app);
            return;
        }
    }
    apps_.push_back(std::move(app));
}

void AppRegistry::install(PlistPtr app) {
    std::lock_guard<std::mutex> lock(mutex_);
    put(std::move(app));
    save();
}

void AppRegistry::install(std::vector<PlistPtr> apps) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& app : apps) put(std::move(app));
    save();
}

std::vector<std::string> AppRegistry::removeUserAppsExcept(const std::set<std::string>& keep) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> removed;
    for (auto it = apps_.begin(); it != apps_.end();) {
        const std::string id = dictString(it->get(), "CFBundleIdentifier").value_or("");
        if (dictString(it->get(), "ApplicationType").value_or("") == "User" && !keep.count(id)) {
            removed.push_back(id);
            it = apps_.erase(it);
        } else {
            ++it;
        }
    }
    if (!removed.empty()) save();
    return removed;
}

bool AppRegistry::remove(const std::string& id) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = apps_.begin(); it != apps_.end(); ++it) {
        if (dictString(it->get(), "CFBundleIdentifier") == id) {
            apps_.erase(it);
            save();
            return true;
        }
    }
    return false;
}

bool AppRegistry::hasArchive(const std::string& id) {
    std::lock_guard<std::mutex> lock(mutex_);
    return plist_dict_get_item(archives_.get(), id.c_str()) != nullptr;
}

void AppRegistry::addArchive(const std::string& id, PlistPtr record) {
    std::lock_guard<std::mutex> lock(mutex_);
    plist_dict_set_item(archives_.get(), id.c_str(), record.release());
    save();
}

PlistPtr AppRegistry::takeArchive(const std::string& id) {
    std::lock_guard<std::mutex> lock(mutex_);
    plist_t record = plist_dict_get_item(archives_.get(), id.c_str());
    if (!record) return nullptr;
    PlistPtr copy = adopt(plist_copy(record));
    plist_dict_remove_item(archives_.get(), id.c_str());
    save();
    return copy;
}

PlistPtr AppRegistry::archives() {
    std::lock_guard<std::mutex> lock(mutex_);
    return adopt(plist_copy(archives_.get()));
}

AppRegistry& appRegistryFor(const ServiceContext& ctx) {
    static std::mutex mutex;
    // Registries live as long as the simulator: a device that is detached
    // and attached again finds its apps as it left them.
    static std::map<std::string, std::unique_ptr<AppRegistry>> registries;
    const std::string key = ctx.stateDir.empty() ? "udid:" + ctx.udid : ctx.stateDir.string();
    std::lock_guard<std::mutex> lock(mutex);
    auto& slot = registries[key];
    if (!slot) slot = std::make_unique<AppRegistry>(ctx.stateDir.empty() ? fs::path() : ctx.stateDir / "apps.plist",
                                                    ctx.profile);
    return *slot;
}

}  // namespace zsim
