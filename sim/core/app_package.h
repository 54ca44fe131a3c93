// Application packages (.ipa: a zip with Payload/<Name>.app/ and, from the
// store, iTunesMetadata.plist at its root) as installation_proxy reads them,
// and the archives it leaves behind for Archive.
#pragma once

#include "core/plist_util.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace zsim {

enum class PackageFault {
    None,
    Unreadable,   // no such file, or not a regular file
    NotZip,       // the bytes are not a zip archive
    NoBundle,     // no Payload/<Name>.app/Info.plist
    BadInfo,      // Info.plist unreadable or without a bundle identifier
    NoVersion,    // Info.plist without CFBundleVersion
};

struct PackageContents {
    PackageFault fault = PackageFault::None;
    std::string detail;             // why, for the host's ErrorDescription
    std::string appDir;             // "Example.app"
    PlistPtr info;                  // the bundle's Info.plist
    std::optional<std::string> metadata;  // raw iTunesMetadata.plist
    std::optional<std::string> sinf;      // SC_Info/<Executable>.sinf
    uint64_t payloadBytes = 0;      // uncompressed size of everything under Payload/
};

PackageContents readPackage(const std::filesystem::path& file);

// Writes the archive of an app: its Info.plist under Payload/<appDir>/ and
// the store metadata at the root, when the app has it.
bool writeAppArchive(const std::filesystem::path& file, const std::string& appDir, const std::string& infoPlist,
                     const std::optional<std::string>& metadata, std::string& error);

}  // namespace zsim
