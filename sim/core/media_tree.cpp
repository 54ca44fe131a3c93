#include "core/media_tree.h"

#include "core/jpeg_writer.h"
#include "core/plist_util.h"

#include <cstdio>
#include <fstream>
#include <system_error>
#include <vector>

namespace zsim {
namespace fs = std::filesystem;
namespace {

bool writeFile(const fs::path& file, const std::string& bytes) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

// Folders every device's media partition has, whether or not they hold anything.
const char* const kStandardFolders[] = {
    "DCIM/100APPLE", "PhotoData", "Books", "Downloads", "Recordings", "Purchases",
    "iTunes_Control/iTunes", "iTunes_Control/Music", "iTunes_Control/Ringtones",
    "iTunes_Control/Artwork", "iTunes_Control/Device",
};

// A one-page PDF with the book's title: enough for a reader to open it.
std::string tinyPdf(const std::string& title) {
    std::string text;
    for (char c : title)
        if (c != '(' && c != ')' && c != '\\') text.push_back(c);
    std::string stream = "BT /F1 18 Tf 36 100 Td (" + text + ") Tj ET";
    std::vector<std::string> objects = {
        "<< /Type /Catalog /Pages 2 0 R >>",
        "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 300 200] /Contents 4 0 R /Resources << /Font << /F1 5 0 R >> >> >>",
        "<< /Length " + std::to_string(stream.size()) + " >>\nstream\n" + stream + "\nendstream",
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>",
    };
    std::string pdf = "%PDF-1.4\n";
    std::vector<size_t> offsets;
    for (size_t i = 0; i < objects.size(); ++i) {
        offsets.push_back(pdf.size());
        pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    size_t xref = pdf.size();
    pdf += "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (size_t off : offsets) {
        char line[24];
        snprintf(line, sizeof(line), "%010zu 00000 n \n", off);
        pdf += line;
    }
    pdf += "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " /Root 1 0 R >>\nstartxref\n" +
           std::to_string(xref) + "\n%%EOF\n";
    return pdf;
}

// Books synced from a computer: /Books/Books.plist lists them, the files sit beside it.
bool writeBooks(const fs::path& booksDir, plist_t books, std::string& error) {
    if (!books || plist_get_node_type(books) != PLIST_ARRAY || plist_array_get_size(books) == 0) return true;
    PlistPtr index = adopt(plist_new_dict());
    plist_dict_set_item(index.get(), "Books", plist_copy(books));
    for (uint32_t i = 0; i < plist_array_get_size(books); ++i) {
        plist_t book = plist_array_get_item(books, i);
        auto path = dictString(book, "Path");
        if (!path || path->empty() || path->find('/') != std::string::npos || *path == "..") continue;
        if (!writeFile(booksDir / *path, tinyPdf(dictString(book, "Name").value_or(*path)))) {
            error = "cannot write " + (booksDir / *path).string();
            return false;
        }
    }
    if (!writePlistFile(booksDir / "Books.plist", index.get())) {
        error = "cannot write " + (booksDir / "Books.plist").string();
        return false;
    }
    return true;
}

}  // namespace

bool buildMediaTree(const fs::path& mediaRoot, const fs::path& profileMedia, plist_t profile,
                    std::string& error) {
    std::error_code ec;
    fs::create_directories(mediaRoot, ec);
    if (ec) {
        error = "cannot create " + mediaRoot.string() + ": " + ec.message();
        return false;
    }
    if (!profileMedia.empty() && fs::is_directory(profileMedia)) {
        fs::copy(profileMedia, mediaRoot,
                 fs::copy_options::recursive | fs::copy_options::copy_symlinks |
                     fs::copy_options::overwrite_existing,
                 ec);
        if (ec) {
            error = "cannot copy " + profileMedia.string() + ": " + ec.message();
            return false;
        }
    }
    for (const char* folder : kStandardFolders) fs::create_directories(mediaRoot / folder, ec);

    plist_t media = dictDict(profile, "Media");
    uint64_t photos = dictUInt(media, "GeneratePhotos").value_or(0);
    for (uint64_t i = 1; i <= photos && i <= 9999; ++i) {
        char name[32];
        snprintf(name, sizeof(name), "IMG_%04llu.JPG", static_cast<unsigned long long>(i));
        fs::path file = mediaRoot / "DCIM/100APPLE" / name;
        if (fs::exists(file)) continue;
        // Landscape and portrait alternate, as on a real camera roll.
        bool portrait = (i % 3) == 0;
        if (!writeFile(file, makeMosaicJpeg(portrait ? 48 : 64, portrait ? 64 : 48, static_cast<uint32_t>(i)))) {
            error = "cannot write " + file.string();
            return false;
        }
    }
    return writeBooks(mediaRoot / "Books", media ? plist_dict_get_item(media, "Books") : nullptr, error);
}

bool buildSystemTree(const fs::path& systemRoot, plist_t profile, std::string& error) {
    std::error_code ec;
    // A jailbroken device carries its package manager: its app and the
    // folder it installs from.
    for (const char* folder : {"Applications/Cydia.app", "Library", "System/Library/CoreServices", "bin", "sbin",
                               "usr/bin", "usr/lib", "private/etc", "private/var/mobile/Library",
                               "private/var/root/Media/Cydia/AutoInstall", "private/var/mobile/Media"}) {
        fs::create_directories(systemRoot / folder, ec);
        if (ec) {
            error = "cannot create " + (systemRoot / folder).string() + ": " + ec.message();
            return false;
        }
    }
    // Relative links, as on the device, so they stay inside the tree.
    if (!fs::exists(systemRoot / "etc", ec) && !fs::is_symlink(systemRoot / "etc", ec))
        fs::create_directory_symlink("private/etc", systemRoot / "etc", ec);
    if (!fs::exists(systemRoot / "var", ec) && !fs::is_symlink(systemRoot / "var", ec))
        fs::create_directory_symlink("private/var", systemRoot / "var", ec);

    plist_t values = dictDict(profile, "Values");
    PlistPtr version = adopt(plist_new_dict());
    plist_dict_set_item(version.get(), "ProductName", plist_new_string("iPhone OS"));
    plist_dict_set_item(version.get(), "ProductVersion",
                        plist_new_string(dictString(values, "ProductVersion").value_or("").c_str()));
    plist_dict_set_item(version.get(), "ProductBuildVersion",
                        plist_new_string(dictString(values, "BuildVersion").value_or("").c_str()));
    writePlistFile(systemRoot / "System/Library/CoreServices/SystemVersion.plist", version.get());
    writeFile(systemRoot / "private/etc/fstab", "/dev/disk0s1s1 / apfs ro 0 1\n/dev/disk0s1s2 /private/var apfs rw,nosuid 0 2\n");
    return true;
}

}  // namespace zsim
