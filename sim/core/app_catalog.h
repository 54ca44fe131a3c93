// The app records a device holds, in the shape installation_proxy's Browse
// gives them without ReturnAttributes, plus the disk usage keys. They come
// from a profile's "Apps" section (see sim/README.md) or from an installed
// package.
#pragma once

#include "core/app_package.h"
#include "core/plist_util.h"

#include <string>
#include <vector>

namespace zsim {

// Every app the profile lists or generates: user apps first, then system apps.
std::vector<PlistPtr> appsFromProfile(plist_t profile);

// The record of a package just installed. `options` are the host's
// ClientOptions (their iTunesMetadata and ApplicationSINF stand in for what
// the package lacks); `previous` is the record it replaces, if any, whose
// containers and data it keeps.
PlistPtr appFromPackage(const PackageContents& package, plist_t options, plist_t previous, plist_t profile);

// The record of a user app a backup's Manifest.plist lists (its
// "Applications" entry: identifier, names, versions, sizes, store data).
PlistPtr appFromBackup(plist_t entry, plist_t profile);

// The Info.plist an archive carries for an app record.
std::string infoPlistOf(plist_t app);

// The folder name of the app's bundle ("Example.app").
std::string bundleDirOf(plist_t app);

}  // namespace zsim
