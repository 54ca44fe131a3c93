// Zip archives: packing a folder, unpacking an archive, reading one entry.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace zeb {

struct ZipFileEntry {
    std::filesystem::path source;  // the file on disk
    std::string name;              // its name inside the archive ("/" separated)
    bool stored = false;           // kept uncompressed (an EPUB's "mimetype")
};

// The files below a folder, sorted by path; names are relative to the folder
// and start with `parent` when it is given. Callers may reorder the entries or
// add their own before writing.
struct ZipFileList {
    ZipFileList() = default;
    ZipFileList(const std::filesystem::path& folder, const std::string& parent = "");
    std::vector<ZipFileEntry> files;
};

// Writes the listed files, in order, into a new archive at `zipPath`. A file
// whose lower-case extension, between ';', appears in `excluded` (";.zip;.exe;")
// is left out; null excludes nothing. An empty name stands for the file's own
// name. False when the archive could not be written completely.
bool writeZip(const ZipFileList& list, const std::filesystem::path& zipPath, const char* excluded = nullptr);

class ZipReader {
public:
    // Unpacks every entry into `folder`, overwriting files that are there. An
    // entry whose name is absolute or holds a ".." component is refused and
    // the rest goes on. True when the archive opened and every entry was
    // unpacked.
    bool extract(const std::filesystem::path& zipPath, const std::filesystem::path& folder);

    std::string password;  // for encrypted entries; empty for none
};

// Largest entry readZipEntry takes into memory.
inline constexpr uint64_t kZipEntryLimit = 512ull << 20;

// The content of the entry `name` (exact, case-sensitive). False with an
// empty `out` when the archive, the entry or its data is bad or too large.
bool readZipEntry(std::string& out, const std::filesystem::path& zipPath, const std::string& name,
                  uint64_t limit = kZipEntryLimit);

// The names of all entries, in archive order; empty for a bad archive.
std::vector<std::string> listZipEntries(const std::filesystem::path& zipPath);

// True when an entry name would land outside the folder it is unpacked into.
bool isUnsafeEntryName(const std::string& name);

}  // namespace zeb
