#include "core/backup_apply_media.h"

#include "core/backup_device_files.h"
#include "services/afc_partition.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>

namespace zsim {
namespace fs = std::filesystem;

namespace {

// The local path for a path in the partition, its folders made on the way;
// empty when a link or a file stands where a folder should be, or a folder
// where the file should go.
fs::path placeFor(const fs::path& root, const std::string& path, bool folder) {
    fs::path at = root;
    for (size_t start = 0; start < path.size();) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        at /= path.substr(start, end - start);
        const bool last = end == path.size();
        start = end + 1;
        struct stat st {};
        const bool exists = ::lstat(at.c_str(), &st) == 0;
        if (last && !folder) return exists && S_ISDIR(st.st_mode) ? fs::path() : at;
        if (!exists && ::mkdir(at.c_str(), 0755) != 0) return {};
        if (exists && !S_ISDIR(st.st_mode)) return {};
    }
    return at;
}

// The regular file at a path in the partition, reached without links;
// empty when there is none.
fs::path regularFileIn(const fs::path& root, const std::string& path) {
    fs::path at = root;
    for (size_t start = 0; start < path.size();) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        at /= path.substr(start, end - start);
        struct stat st {};
        if (::lstat(at.c_str(), &st) != 0) return {};
        if (end == path.size()) return S_ISREG(st.st_mode) ? at : fs::path();
        if (!S_ISDIR(st.st_mode)) return {};
        start = end + 1;
    }
    return {};
}

void moveInto(const fs::path& staged, const fs::path& target) {
    std::error_code ec;
    fs::rename(staged, target, ec);
    if (!ec) return;
    // A state folder spread over two file systems: copy instead.
    fs::copy_file(staged, target, fs::copy_options::overwrite_existing, ec);
    fs::remove(staged, ec);
}

// Runs `change` on `paths` and counts what it did in a sized partition.
void counted(MediaPartition* partition, const std::vector<fs::path>& paths, const std::function<void()>& change) {
    if (!partition) return change();
    partition->update([&](uint64_t) {
        int64_t before = 0, after = 0;
        for (const auto& p : paths) before += static_cast<int64_t>(bytesUnder(p));
        change();
        for (const auto& p : paths) after += static_cast<int64_t>(bytesUnder(p));
        return after - before;
    });
}

}  // namespace

RestoreStaging::RestoreStaging(const ServiceContext& ctx) : ctx_(ctx) {}

RestoreStaging::~RestoreStaging() {
    std::error_code ec;
    if (!dir_.empty()) fs::remove_all(dir_, ec);
}

fs::path RestoreStaging::nextFile() {
    if (ctx_.mediaRoot.empty() || ctx_.stateDir.empty()) return {};
    if (dir_.empty()) {
        std::string pattern = (ctx_.stateDir / "restore-XXXXXX").string();
        std::error_code ec;
        fs::create_directories(ctx_.stateDir, ec);
        if (!::mkdtemp(pattern.data())) return {};
        dir_ = pattern;
    }
    return dir_ / std::to_string(++files_);
}

fs::path RestoreStaging::inPlace(const std::string& path) const {
    if (ctx_.mediaRoot.empty() || ctx_.stateDir.empty()) return {};
    return regularFileIn(ctx_.mediaRoot, path);
}

bool restoreFits(const ServiceContext& ctx, const std::vector<std::pair<std::string, uint64_t>>& mediaFiles) {
    MediaPartition* partition = mediaPartitionFor(ctx.mediaRoot, ctx.profile);
    if (!partition) return true;
    uint64_t coming = 0, leaving = 0;
    for (const auto& [path, size] : mediaFiles) {
        coming += size;
        const fs::path replaced = regularFileIn(ctx.mediaRoot, path);
        if (!replaced.empty()) leaving += bytesUnder(replaced);
    }
    return coming <= leaving || coming - leaving <= partition->freeBytes();
}

void applyMedia(const ServiceContext& ctx, RestoreStaging& staging, bool removeNotRestored) {
    if (ctx.mediaRoot.empty()) return;
    MediaPartition* partition = mediaPartitionFor(ctx.mediaRoot, ctx.profile);
    for (const std::string& folder : staging.folders) placeFor(ctx.mediaRoot, folder, true);
    for (const auto& file : staging.media) {
        const fs::path target = placeFor(ctx.mediaRoot, file.path, false);
        if (target.empty()) continue;  // skipped: nothing is written through a link
        counted(partition, {target}, [&] { moveInto(file.staged, target); });
    }
    if (!removeNotRestored) return;

    std::vector<fs::path> stale;
    std::error_code ec;
    fs::recursive_directory_iterator it(ctx.mediaRoot, fs::directory_options::skip_permission_denied, ec), end;
    for (; !ec && it != end; it.increment(ec)) {
        const std::string path = it->path().lexically_relative(ctx.mediaRoot).generic_string();
        if (isHostFile(path)) {
            it.disable_recursion_pending();
            continue;
        }
        if (!it->is_directory(ec) || it->is_symlink(ec))
            if (!staging.listed.count(path)) stale.push_back(it->path());
    }
    for (const auto& path : stale) counted(partition, {path}, [&] { fs::remove(path, ec); });
}

}  // namespace zsim
