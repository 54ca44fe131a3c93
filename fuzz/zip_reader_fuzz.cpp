// Archives handed to the worker (packages to install) are untrusted: reading
// and unpacking one must neither crash nor write outside its folder.
#include "zeb_zip.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace {
const fs::path base = fs::temp_directory_path() / ("zeb-zip-fuzz-" + std::to_string(getpid()));
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The reader's complaints about broken archives would drown the run.
    if (!std::freopen("/dev/null", "w", stdout)) return 0;
    std::atexit([] { fs::remove_all(base); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fs::path archive = base / "input.zip";
    static const fs::path target = base / "box" / "target";
    fs::create_directories(base / "box");
    if (FILE* file = std::fopen(archive.c_str(), "wb")) {
        std::fwrite(data, 1, size, file);
        std::fclose(file);
    }
    // The worker reads a few named entries (Info.plist, the metadata); each
    // read looks its name up from the start, so reading every entry of a
    // many-entry archive is quadratic and only slows the run down.
    int reads = 0;
    for (const auto& name : zeb::listZipEntries(archive)) {
        if (++reads > 16) break;
        std::string content;
        zeb::readZipEntry(content, archive, name, 1 << 20);
    }
    zeb::ZipReader().extract(archive, target);
    // Anything beside the target folder would be an escape.
    for (const auto& entry : fs::directory_iterator(base / "box"))
        if (entry.path() != target) std::abort();
    fs::remove_all(target);
    return 0;
}
