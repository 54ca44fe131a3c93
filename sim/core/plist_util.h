// Small helpers over libplist: ownership, typed look-ups, files.
#pragma once

#include <plist/plist.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zsim {

struct PlistDeleter {
    void operator()(plist_t p) const { if (p) plist_free(p); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

inline PlistPtr adopt(plist_t p) { return PlistPtr(p); }

// The text of a string node up to its first NUL, as a device reads it;
// nullopt for other nodes. (libplist's own getter aborts the process on a
// string with a NUL inside, which any host can send.)
std::optional<std::string> stringValue(plist_t node);

// Typed reads of a dictionary entry; nullopt when absent or of another type.
std::optional<std::string> dictString(plist_t dict, const char* key);
std::optional<uint64_t> dictUInt(plist_t dict, const char* key);
std::optional<bool> dictBool(plist_t dict, const char* key);
std::optional<std::vector<char>> dictData(plist_t dict, const char* key);
// The entry when it is a dictionary, else null (not owned).
plist_t dictDict(plist_t dict, const char* key);

// Parses XML or binary property-list bytes; null on malformed input.
PlistPtr parsePlist(const char* data, size_t size);
std::string toXml(plist_t p);
std::string toBinary(plist_t p);

PlistPtr readPlistFile(const std::filesystem::path& file);
// Writes through a temporary file and a rename so a crash never leaves half a file.
bool writePlistFile(const std::filesystem::path& file, plist_t p);

// Copies every entry of `from` into `into` (replacing same-named entries).
void mergeDict(plist_t into, plist_t from);

}  // namespace zsim
