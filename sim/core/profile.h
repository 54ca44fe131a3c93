// Device profiles: a folder with profile.plist (values and behaviours) and an
// optional media/ tree, or the built-in device. The format is described in
// sim/README.md.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace zsim {

struct Profile {
    std::string source;                  // "builtin" or the profile folder
    std::string plistText;               // profile.plist as read
    std::filesystem::path mediaDir;      // empty when the profile has none
};

std::optional<Profile> loadProfile(const std::filesystem::path& dir, std::string& error);
Profile builtinProfile();

// The n-th device made from one profile gets a UDID of its own, in the same
// format as the profile's (40 hex digits, or the 8-dash-16 form).
std::string deriveUdid(const std::string& base, unsigned n);
// UDIDs become file names in the state folder: only safe characters pass.
bool isSafeUdid(const std::string& udid);

}  // namespace zsim
