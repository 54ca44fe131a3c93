// Builds an application package for tests and benchmarks:
//
//   make_test_ipa OUT.ipa --id ID [--name NAME] [--version BUILD] [--short VERSION]
//                 [--payload-bytes N] [--icon-url URL] [--no-metadata] [--no-bundle-version]
//                 [--entry NAME]
//
// The package holds Payload/<Name>.app/Info.plist, an executable of N bytes
// (stored, not compressed, so a large package stays large), and unless
// --no-metadata an iTunesMetadata.plist at the root. --entry adds an empty
// entry of that exact name (e.g. "../escape.txt").
#include <plist/plist.h>
#include <zip.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Options {
    std::string out, id, name, version = "1", shortVersion = "1.0", iconUrl;
    uint64_t payloadBytes = 4096;
    bool metadata = true, bundleVersion = true;
    std::vector<std::string> extraEntries;
};

// Entries carry a fixed date so that a package's bytes depend on its options only.
zip_fileinfo entryInfo() {
    zip_fileinfo info{};
    info.tmz_date = {0, 0, 12, 1, 0, 2024};
    return info;
}

bool addEntry(zipFile zip, const std::string& name, const void* data, size_t size, bool compress) {
    zip_fileinfo info = entryInfo();
    if (zipOpenNewFileInZip64(zip, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                              compress ? Z_DEFLATED : 0, compress ? Z_DEFAULT_COMPRESSION : 0, size > 0xFFFFFFFFull) !=
        ZIP_OK)
        return false;
    const auto* p = static_cast<const char*>(data);
    while (size > 0) {
        const unsigned chunk = size > (1u << 20) ? (1u << 20) : static_cast<unsigned>(size);
        if (zipWriteInFileInZip(zip, p, chunk) != ZIP_OK) return false;
        p += chunk;
        size -= chunk;
    }
    return zipCloseFileInZip(zip) == ZIP_OK;
}

std::string xmlOf(plist_t p) {
    char* xml = nullptr;
    uint32_t len = 0;
    plist_to_xml(p, &xml, &len);
    std::string out(xml, len);
    free(xml);
    return out;
}

std::string executableName(const std::string& name) {
    std::string out;
    for (char c : name)
        if (isalnum(static_cast<unsigned char>(c))) out.push_back(c);
    return out.empty() ? "App" : out;
}

bool build(const Options& o) {
    zipFile zip = zipOpen64(o.out.c_str(), APPEND_STATUS_CREATE);
    if (!zip) return false;
    const std::string exe = executableName(o.name);
    const std::string app = "Payload/" + exe + ".app/";

    plist_t info = plist_new_dict();
    plist_dict_set_item(info, "CFBundleIdentifier", plist_new_string(o.id.c_str()));
    plist_dict_set_item(info, "CFBundleName", plist_new_string(exe.c_str()));
    plist_dict_set_item(info, "CFBundleDisplayName", plist_new_string(o.name.c_str()));
    plist_dict_set_item(info, "CFBundleExecutable", plist_new_string(exe.c_str()));
    plist_dict_set_item(info, "CFBundleShortVersionString", plist_new_string(o.shortVersion.c_str()));
    if (o.bundleVersion) plist_dict_set_item(info, "CFBundleVersion", plist_new_string(o.version.c_str()));
    plist_dict_set_item(info, "CFBundlePackageType", plist_new_string("APPL"));
    plist_dict_set_item(info, "MinimumOSVersion", plist_new_string("13.0"));
    const std::string infoXml = xmlOf(info);
    plist_free(info);

    bool ok = addEntry(zip, app, "", 0, false) && addEntry(zip, app + "Info.plist", infoXml.data(), infoXml.size(), true);
    std::vector<char> block(1u << 20);
    for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>((i * 2654435761u) >> 13);
    if (ok) {
        zip_fileinfo zi = entryInfo();
        ok = zipOpenNewFileInZip64(zip, (app + exe).c_str(), &zi, nullptr, 0, nullptr, 0, nullptr, 0, 0,
                                   o.payloadBytes > 0xFFFFFFFFull) == ZIP_OK;
        for (uint64_t left = o.payloadBytes; ok && left > 0;) {
            const unsigned chunk = left > block.size() ? static_cast<unsigned>(block.size()) : static_cast<unsigned>(left);
            ok = zipWriteInFileInZip(zip, block.data(), chunk) == ZIP_OK;
            left -= chunk;
        }
        if (ok) ok = zipCloseFileInZip(zip) == ZIP_OK;
    }
    if (ok && o.metadata) {
        plist_t m = plist_new_dict();
        plist_dict_set_item(m, "softwareVersionBundleId", plist_new_string(o.id.c_str()));
        plist_dict_set_item(m, "itemName", plist_new_string((o.name + " - Test Package").c_str()));
        plist_dict_set_item(m, "bundleDisplayName", plist_new_string(o.name.c_str()));
        plist_dict_set_item(m, "bundleShortVersionString", plist_new_string(o.shortVersion.c_str()));
        plist_dict_set_item(m, "bundleVersion", plist_new_string(o.version.c_str()));
        plist_dict_set_item(m, "artistName", plist_new_string("Zebrelo Test Makers"));
        plist_dict_set_item(m, "releaseDate", plist_new_string("2023-06-01T07:00:00Z"));
        plist_dict_set_item(m, "itemId", plist_new_uint(1600000001));
        plist_dict_set_item(m, "genre", plist_new_string("Utilities"));
        plist_dict_set_item(m, "genreId", plist_new_uint(6002));
        plist_dict_set_item(m, "appleId", plist_new_string("tester@example.com"));
        plist_dict_set_item(m, "softwareIcon57x57URL", plist_new_string(o.iconUrl.c_str()));
        plist_t account = plist_new_dict();
        plist_dict_set_item(account, "AppleID", plist_new_string("tester@example.com"));
        plist_dict_set_item(account, "DSPersonID", plist_new_uint(1234567));
        plist_t download = plist_new_dict();
        plist_dict_set_item(download, "accountInfo", account);
        plist_dict_set_item(download, "purchaseDate", plist_new_string("2023-06-02T10:00:00Z"));
        plist_dict_set_item(m, "com.apple.iTunesStore.downloadInfo", download);
        const std::string xml = xmlOf(m);
        plist_free(m);
        ok = addEntry(zip, "iTunesMetadata.plist", xml.data(), xml.size(), true);
    }
    for (const auto& entry : o.extraEntries)
        if (ok) ok = addEntry(zip, entry, "", 0, false);
    if (zipClose(zip, nullptr) != ZIP_OK) ok = false;
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (argc < 2) {
        fprintf(stderr, "usage: make_test_ipa OUT.ipa --id ID [options]\n");
        return 2;
    }
    o.out = argv[1];
    for (int i = 2; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--no-metadata") o.metadata = false;
        else if (arg == "--no-bundle-version") o.bundleVersion = false;
        else if (arg == "--id" && hasValue) o.id = argv[++i];
        else if (arg == "--name" && hasValue) o.name = argv[++i];
        else if (arg == "--version" && hasValue) o.version = argv[++i];
        else if (arg == "--short" && hasValue) o.shortVersion = argv[++i];
        else if (arg == "--icon-url" && hasValue) o.iconUrl = argv[++i];
        else if (arg == "--entry" && hasValue) o.extraEntries.push_back(argv[++i]);
        else if (arg == "--payload-bytes" && hasValue) o.payloadBytes = strtoull(argv[++i], nullptr, 10);
        else {
            fprintf(stderr, "make_test_ipa: bad argument %s\n", arg.c_str());
            return 2;
        }
    }
    if (o.id.empty()) {
        fprintf(stderr, "make_test_ipa: --id is required\n");
        return 2;
    }
    if (o.name.empty()) o.name = "Test App";
    if (o.iconUrl.empty()) o.iconUrl = "http://127.0.0.1:9/icon57.png";
    if (!build(o)) {
        fprintf(stderr, "make_test_ipa: cannot write %s\n", o.out.c_str());
        return 1;
    }
    return 0;
}
