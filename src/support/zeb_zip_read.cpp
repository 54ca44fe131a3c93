// Unpacking zip archives and reading single entries.
#include "zeb_zip.h"

#include "zeb_local_file.h"

#include <minizip/unzip.h>

#include <cstdio>
#include <memory>

namespace zeb {

namespace {

struct ArchiveCloser {
    void operator()(void* archive) const { unzClose(archive); }
};
using Archive = std::unique_ptr<void, ArchiveCloser>;

Archive openArchive(const std::filesystem::path& zipPath) { return Archive(unzOpen64(zipPath.c_str())); }

// The current entry's name ('\' taken as '/', as archives made on Windows
// may have it) and sizes.
bool currentEntry(unzFile archive, std::string& name, unz_file_info64& info) {
    if (unzGetCurrentFileInfo64(archive, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK) return false;
    name.assign(info.size_filename, '\0');
    if (unzGetCurrentFileInfo64(archive, &info, name.data(), static_cast<uLong>(name.size() + 1), nullptr, 0, nullptr,
                                0) != UNZ_OK)
        return false;
    name.resize(std::char_traits<char>::length(name.c_str()));
    for (char& c : name)
        if (c == '\\') c = '/';
    return true;
}

// True when `path` (existing or not) resolves inside `root` (canonical):
// symbolic links already in the folder can't lead an entry out of it.
bool insideFolder(const std::filesystem::path& root, const std::filesystem::path& path) {
    std::error_code error;
    auto resolved = std::filesystem::weakly_canonical(path, error);
    if (error) return false;
    auto relative = resolved.lexically_relative(root);
    return !relative.empty() && *relative.begin() != "..";
}

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

// Writes the open entry into `target`; false (and no file left) on a failure.
bool writeEntry(unzFile archive, const std::filesystem::path& target) {
    std::error_code error;
    // A link at the target's place is replaced, not written through.
    if (std::filesystem::is_symlink(target, error)) std::filesystem::remove(target, error);
    std::unique_ptr<FILE, FileCloser> output(overwriteLocalFile(target));
    if (!output) {
        std::filesystem::create_directories(target.parent_path(), error);
        output.reset(overwriteLocalFile(target));
    }
    if (!output) {
        std::printf("error opening %s\n", target.c_str());
        return false;
    }
    char buffer[8192];
    bool good = true;
    for (;;) {
        int got = unzReadCurrentFile(archive, buffer, sizeof buffer);
        if (got < 0) {
            std::printf("error %d with zipfile in unzReadCurrentFile\n", got);
            good = false;
            break;
        }
        if (got == 0) break;
        if (std::fwrite(buffer, 1, static_cast<size_t>(got), output.get()) != static_cast<size_t>(got)) {
            std::printf("error in writing extracted file\n");
            good = false;
            break;
        }
    }
    if (std::fclose(output.release()) != 0) good = false;
    if (!good) std::filesystem::remove(target, error);
    return good;
}

}  // namespace

bool isUnsafeEntryName(const std::string& name) {
    if (name.empty() || name[0] == '/' || name[0] == '\\') return true;
    if (name.size() >= 2 && name[1] == ':') return true;  // a drive letter
    size_t start = 0;
    while (start <= name.size()) {
        size_t end = name.find_first_of("/\\", start);
        if (end == std::string::npos) end = name.size();
        if (name.compare(start, end - start, "..") == 0) return true;
        start = end + 1;
    }
    return false;
}

bool ZipReader::extract(const std::filesystem::path& zipPath, const std::filesystem::path& folder) {
    Archive archive = openArchive(zipPath);
    if (!archive) {
        std::fprintf(stderr, "Cannot open %s\n", zipPath.c_str());
        return false;
    }
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    auto root = std::filesystem::weakly_canonical(folder, error);
    if (error) return false;
    unz_global_info64 global{};
    if (unzGetGlobalInfo64(archive.get(), &global) != UNZ_OK) return false;
    bool good = true;
    int step = unzGoToFirstFile(archive.get());
    for (uint64_t index = 0; index < global.number_entry && step == UNZ_OK; ++index) {
        std::string name;
        unz_file_info64 info{};
        if (!currentEntry(archive.get(), name, info)) {
            std::printf("error %d with zipfile in unzGetCurrentFileInfo\n", UNZ_ERRNO);
            return false;
        }
        auto target = root / name;
        if (isUnsafeEntryName(name) || !insideFolder(root, target)) {
            std::fprintf(stderr, "refused zip entry %s\n", name.c_str());
            good = false;
        } else if (name.back() == '/') {
            std::filesystem::create_directories(target, error);
            if (error) {
                std::printf("couldn't create directory %s\n", target.c_str());
                good = false;
            }
        } else {
            int opened = unzOpenCurrentFilePassword(archive.get(), password.empty() ? nullptr : password.c_str());
            if (opened != UNZ_OK) {
                std::printf("error %d with zipfile in unzOpenCurrentFilePassword\n", opened);
                good = false;
            } else {
                if (!writeEntry(archive.get(), target)) good = false;
                int closed = unzCloseCurrentFile(archive.get());
                if (closed != UNZ_OK) {
                    // A checksum mismatch: what was written is not the entry.
                    std::printf("error %d with zipfile in unzCloseCurrentFile\n", closed);
                    std::filesystem::remove(target, error);
                    good = false;
                }
            }
        }
        step = unzGoToNextFile(archive.get());
        if (step != UNZ_OK && step != UNZ_END_OF_LIST_OF_FILE) {
            std::printf("error %d with zipfile in unzGoToNextFile\n", step);
            return false;
        }
    }
    return good;
}

bool readZipEntry(std::string& out, const std::filesystem::path& zipPath, const std::string& name, uint64_t limit) {
    out.clear();
    Archive archive = openArchive(zipPath);
    if (!archive || unzLocateFile(archive.get(), name.c_str(), 1) != UNZ_OK) return false;
    unz_file_info64 info{};
    if (unzGetCurrentFileInfo64(archive.get(), &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK ||
        info.uncompressed_size > limit)
        return false;
    if (unzOpenCurrentFile(archive.get()) != UNZ_OK) return false;
    out.reserve(static_cast<size_t>(info.uncompressed_size));
    char buffer[16384];
    bool good = true;
    for (;;) {
        int got = unzReadCurrentFile(archive.get(), buffer, sizeof buffer);
        if (got < 0 || out.size() + static_cast<size_t>(got) > limit) {
            good = false;
            break;
        }
        if (got == 0) break;
        out.append(buffer, static_cast<size_t>(got));
    }
    if (unzCloseCurrentFile(archive.get()) != UNZ_OK) good = false;
    if (!good) out.clear();
    return good;
}

std::vector<std::string> listZipEntries(const std::filesystem::path& zipPath) {
    std::vector<std::string> names;
    Archive archive = openArchive(zipPath);
    if (!archive) return names;
    for (int step = unzGoToFirstFile(archive.get()); step == UNZ_OK; step = unzGoToNextFile(archive.get())) {
        std::string name;
        unz_file_info64 info{};
        if (!currentEntry(archive.get(), name, info)) break;
        names.push_back(name);
    }
    return names;
}

}  // namespace zeb
