// The apps installed on one device and the archives it keeps, persisted in
// the device's state folder (apps.plist) from the first change on, so that
// installs and uninstalls last as long as the state folder.
#pragma once

#include "core/app_notifications.h"
#include "core/plist_util.h"
#include "service.h"

#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace zsim {

class AppRegistry {
public:
    // `stateFile` empty: nothing is persisted.
    AppRegistry(std::filesystem::path stateFile, plist_t profile);

    // Calls `fn` with each app record in listing order, under the lock.
    void forEach(const std::function<void(plist_t app)>& fn);
    size_t count();
    // A copy of the record, or null.
    PlistPtr find(const std::string& id);
    // Adds the app, or replaces the one with the same identifier in place.
    void install(PlistPtr app);
    bool remove(const std::string& id);
    // Many at once, written to the state folder once (a restore).
    void install(std::vector<PlistPtr> apps);
    // Removes the user apps whose identifiers `keep` lacks; their identifiers.
    std::vector<std::string> removeUserAppsExcept(const std::set<std::string>& keep);

    // Archives: identifier -> the record the app had when archived (with
    // "ArchiveType").
    bool hasArchive(const std::string& id);
    void addArchive(const std::string& id, PlistPtr record);
    PlistPtr takeArchive(const std::string& id);
    PlistPtr archives();  // a copy of the whole dictionary

    NotificationCenter& notifications() { return notifications_; }

private:
    void save();  // caller holds mutex_
    void put(PlistPtr app);  // caller holds mutex_

    std::filesystem::path stateFile_;
    std::mutex mutex_;
    std::vector<PlistPtr> apps_;
    PlistPtr archives_;
    NotificationCenter notifications_;
};

// The registry of the device a service runs on, made on first use.
AppRegistry& appRegistryFor(const ServiceContext& ctx);

}  // namespace zsim
