// Packing files into a zip archive.
#include "zeb_zip.h"

#include "zeb_local_file.h"

#include <minizip/zip.h>

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <memory>

namespace zeb {

ZipFileList::ZipFileList(const std::filesystem::path& folder, const std::string& parent) {
    std::error_code error;
    auto options = std::filesystem::directory_options::skip_permission_denied;
    for (std::filesystem::recursive_directory_iterator walk(folder, options, error), end; !error && walk != end;
         walk.increment(error)) {
        if (!walk->is_regular_file(error)) continue;
        std::string name = walk->path().lexically_relative(folder).generic_string();
        if (!parent.empty()) name = parent + (parent.back() == '/' ? "" : "/") + name;
        files.push_back({walk->path(), name, false});
    }
    std::sort(files.begin(), files.end(),
              [](const ZipFileEntry& a, const ZipFileEntry& b) { return a.source < b.source; });
}

namespace {

bool isExcluded(const std::filesystem::path& file, const char* excluded) {
    if (!excluded) return false;
    std::string extension = file.extension().string();
    if (extension.empty()) return false;
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return std::string(excluded).find(";" + extension + ";") != std::string::npos;
}

// The file's modification time as local calendar fields for the entry.
zip_fileinfo entryInfo(const std::filesystem::path& file) {
    zip_fileinfo info{};
    struct stat status {};
    time_t when = stat(file.c_str(), &status) == 0 ? status.st_mtime : time(nullptr);
    struct tm local {};
    localtime_r(&when, &local);
    info.tmz_date.tm_sec = local.tm_sec;
    info.tmz_date.tm_min = local.tm_min;
    info.tmz_date.tm_hour = local.tm_hour;
    info.tmz_date.tm_mday = local.tm_mday;
    info.tmz_date.tm_mon = local.tm_mon;
    info.tmz_date.tm_year = local.tm_year + 1900;
    return info;
}

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

// Copies one file into a freshly opened entry; false on a read or write error.
bool copyIntoEntry(zipFile zip, FILE* input, const std::string& name, std::vector<char>& buffer) {
    for (;;) {
        size_t got = std::fread(buffer.data(), 1, buffer.size(), input);
        if (got < buffer.size() && std::ferror(input)) {
            std::printf("error in reading %s\n", name.c_str());
            return false;
        }
        if (got > 0 && zipWriteInFileInZip(zip, buffer.data(), static_cast<unsigned>(got)) != ZIP_OK) {
            std::printf("error in writing %s in the zipfile\n", name.c_str());
            return false;
        }
        if (got < buffer.size()) return true;
    }
}

// minizip's stdio file functions, except that the archive is opened as
// every local file the worker writes is (zeb_local_file.h): a link at its
// place is refused, not written through.
voidpf ZCALLBACK openArchiveFile(voidpf, const void* name, int mode) {
    if (!(mode & ZLIB_FILEFUNC_MODE_CREATE)) return nullptr;  // the writer only ever creates
    return overwriteLocalFile(static_cast<const char*>(name));
}

}  // namespace

bool writeZip(const ZipFileList& list, const std::filesystem::path& zipPath, const char* excluded) {
    zlib_filefunc64_def files;
    fill_fopen64_filefunc(&files);
    files.zopen64_file = openArchiveFile;
    zipFile zip = zipOpen2_64(zipPath.c_str(), APPEND_STATUS_CREATE, nullptr, &files);
    if (!zip) {
        std::printf("error opening %s\n", zipPath.c_str());
        return false;
    }
    std::vector<char> buffer(16384);
    bool good = true;
    for (const auto& entry : list.files) {
        if (isExcluded(entry.source, excluded)) continue;
        std::string name = entry.name.empty() ? entry.source.filename().string() : entry.name;
        zip_fileinfo info = entryInfo(entry.source);
        std::error_code error;
        uint64_t size = std::filesystem::file_size(entry.source, error);
        int zip64 = !error && size >= 0xFFFFFFFFull ? 1 : 0;
        // Flag bit 11: the name is UTF-8.
        int opened = zipOpenNewFileInZip4_64(zip, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                                             entry.stored ? 0 : Z_DEFLATED, entry.stored ? 0 : Z_DEFAULT_COMPRESSION,
                                             0, -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr, 0, 0,
                                             1 << 11, zip64);
        if (opened != ZIP_OK) {
            std::printf("error in opening %s in zipfile\n", name.c_str());
            good = false;
            continue;
        }
        std::unique_ptr<FILE, FileCloser> input(std::fopen(entry.source.c_str(), "rb"));
        if (!input) {
            std::printf("error in opening %s for reading\n", entry.source.c_str());
            good = false;
        } else if (!copyIntoEntry(zip, input.get(), name, buffer)) {
            good = false;
        }
        if (zipCloseFileInZip(zip) != ZIP_OK) {
            std::printf("error in closing %s in the zipfile\n", name.c_str());
            good = false;
        }
    }
    if (zipClose(zip, nullptr) != ZIP_OK) {
        std::printf("error in closing %s\n", zipPath.c_str());
        good = false;
    }
    return good;
}

}  // namespace zeb
