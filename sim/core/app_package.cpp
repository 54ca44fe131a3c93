#include "core/app_package.h"

#include <unzip.h>
#include <zip.h>

#include <memory>
#include <ctime>
#include <system_error>
#include <vector>

namespace zsim {
namespace fs = std::filesystem;

namespace {

// Plists inside a package are small; a larger entry is not worth reading.
constexpr uint64_t kMaxPlistEntry = 8u << 20;

struct UnzipCloser {
    void operator()(unzFile z) const { if (z) unzClose(z); }
};
using UnzipPtr = std::unique_ptr<void, UnzipCloser>;

bool readCurrentEntry(unzFile zip, uint64_t size, std::string& out) {
    if (size > kMaxPlistEntry) return false;
    if (unzOpenCurrentFile(zip) != UNZ_OK) return false;
    out.assign(size, '\0');
    size_t done = 0;
    bool ok = true;
    while (done < size) {
        int got = unzReadCurrentFile(zip, out.data() + done, static_cast<unsigned>(size - done));
        if (got <= 0) {
            ok = false;
            break;
        }
        done += static_cast<size_t>(got);
    }
    // The CRC check happens at close: a damaged entry is not trusted.
    if (unzCloseCurrentFile(zip) != UNZ_OK) ok = false;
    return ok;
}

bool readEntry(unzFile zip, const std::string& name, std::string& out) {
    if (unzLocateFile(zip, name.c_str(), 1) != UNZ_OK) return false;
    unz_file_info64 info{};
    if (unzGetCurrentFileInfo64(zip, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK) return false;
    return readCurrentEntry(zip, info.uncompressed_size, out);
}

// "Payload/<Name>.app/Info.plist" gives "<Name>.app"; other names give "".
std::string bundleDirOf(const std::string& entry) {
    static const std::string prefix = "Payload/";
    static const std::string suffix = "/Info.plist";
    if (entry.size() <= prefix.size() + suffix.size() || entry.compare(0, prefix.size(), prefix) != 0) return "";
    if (entry.compare(entry.size() - suffix.size(), suffix.size(), suffix) != 0) return "";
    std::string dir = entry.substr(prefix.size(), entry.size() - prefix.size() - suffix.size());
    if (dir.empty() || dir[0] == '.' || dir.find('/') != std::string::npos) return "";
    if (dir.size() < 5 || dir.compare(dir.size() - 4, 4, ".app") != 0) return "";
    return dir;
}

PackageContents fault(PackageFault f, std::string detail) {
    PackageContents c;
    c.fault = f;
    c.detail = std::move(detail);
    return c;
}

}  // namespace

PackageContents readPackage(const fs::path& file) {
    std::error_code ec;
    if (!fs::is_regular_file(file, ec)) return fault(PackageFault::Unreadable, "the package does not exist");
    UnzipPtr zip(unzOpen64(file.c_str()));
    if (!zip) return fault(PackageFault::NotZip, "the package is not a zip archive");

    PackageContents c;
    std::vector<char> name(4096);
    int rc = unzGoToFirstFile(zip.get());
    if (rc != UNZ_OK) return fault(PackageFault::NotZip, "the package archive has no entries");
    for (; rc == UNZ_OK; rc = unzGoToNextFile(zip.get())) {
        unz_file_info64 info{};
        if (unzGetCurrentFileInfo64(zip.get(), &info, name.data(), static_cast<uLong>(name.size()), nullptr, 0,
                                    nullptr, 0) != UNZ_OK)
            return fault(PackageFault::NotZip, "the package archive is damaged");
        std::string entry(name.data());
        if (entry.compare(0, 8, "Payload/") == 0) c.payloadBytes += info.uncompressed_size;
        if (c.appDir.empty()) c.appDir = bundleDirOf(entry);
    }
    if (rc != UNZ_END_OF_LIST_OF_FILE) return fault(PackageFault::NotZip, "the package archive is damaged");
    if (c.appDir.empty()) return fault(PackageFault::NoBundle, "no application bundle in the Payload folder");

    std::string text;
    if (!readEntry(zip.get(), "Payload/" + c.appDir + "/Info.plist", text))
        return fault(PackageFault::BadInfo, "could not read Info.plist of " + c.appDir);
    c.info = parsePlist(text.data(), text.size());
    if (!c.info || plist_get_node_type(c.info.get()) != PLIST_DICT)
        return fault(PackageFault::BadInfo, "Info.plist of " + c.appDir + " is not a property list");
    auto id = dictString(c.info.get(), "CFBundleIdentifier");
    if (!id || id->empty() || *id == "." || *id == ".." || id->find('/') != std::string::npos)
        return fault(PackageFault::BadInfo, "Info.plist of " + c.appDir + " has no valid CFBundleIdentifier");
    if (!dictString(c.info.get(), "CFBundleVersion"))
        return fault(PackageFault::NoVersion, "Info.plist of " + c.appDir + " has no CFBundleVersion");

    if (readEntry(zip.get(), "iTunesMetadata.plist", text)) c.metadata = text;
    const std::string executable = dictString(c.info.get(), "CFBundleExecutable").value_or("");
    if (!executable.empty() &&
        readEntry(zip.get(), "Payload/" + c.appDir + "/SC_Info/" + executable + ".sinf", text))
        c.sinf = text;
    return c;
}

bool writeAppArchive(const fs::path& file, const std::string& appDir, const std::string& infoPlist,
                     const std::optional<std::string>& metadata, std::string& error) {
    std::error_code ec;
    fs::create_directories(file.parent_path(), ec);
    const fs::path partial = file.string() + ".partial";
    zipFile zip = zipOpen64(partial.c_str(), APPEND_STATUS_CREATE);
    if (!zip) {
        error = "cannot create " + partial.string();
        return false;
    }
    auto add = [&](const std::string& name, const std::string& data) {
        zip_fileinfo info{};
        const time_t now = time(nullptr);
        struct tm local {};
        localtime_r(&now, &local);
        info.tmz_date = {static_cast<uInt>(local.tm_sec), static_cast<uInt>(local.tm_min),
                         static_cast<uInt>(local.tm_hour), static_cast<uInt>(local.tm_mday),
                         static_cast<uInt>(local.tm_mon), static_cast<uInt>(local.tm_year + 1900)};
        if (zipOpenNewFileInZip64(zip, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED,
                                  Z_DEFAULT_COMPRESSION, 0) != ZIP_OK)
            return false;
        const bool wrote = data.empty() || zipWriteInFileInZip(zip, data.data(), static_cast<unsigned>(data.size())) == ZIP_OK;
        return zipCloseFileInZip(zip) == ZIP_OK && wrote;
    };
    bool ok = add("Payload/" + appDir + "/Info.plist", infoPlist);
    if (ok && metadata) ok = add("iTunesMetadata.plist", *metadata);
    if (zipClose(zip, nullptr) != ZIP_OK) ok = false;
    if (ok) fs::rename(partial, file, ec);
    if (!ok || ec) {
        fs::remove(partial, ec);
        error = "cannot write " + file.string();
        return false;
    }
    return true;
}

}  // namespace zsim
