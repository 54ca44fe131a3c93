// Operations that name paths: listing, info, creating, removing, renaming,
// links and times.
#include "afc_session.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>

namespace zsim::afc {
namespace {

std::string decimal(uint64_t v) { return std::to_string(v); }

const char* fileTypeName(mode_t mode) {
    if (S_ISREG(mode)) return "S_IFREG";
    if (S_ISDIR(mode)) return "S_IFDIR";
    if (S_ISLNK(mode)) return "S_IFLNK";
    if (S_ISCHR(mode)) return "S_IFCHR";
    if (S_ISBLK(mode)) return "S_IFBLK";
    if (S_ISFIFO(mode)) return "S_IFIFO";
    return "S_IFSOCK";
}

uint64_t nanos(const struct statx_timestamp& t) {
    return static_cast<uint64_t>(t.tv_sec) * 1000000000ull + t.tv_nsec;
}

// A profile value given as a number or as decimal text.
std::optional<std::string> profileText(plist_t dict, const char* key) {
    plist_t node = dict ? plist_dict_get_item(dict, key) : nullptr;
    if (!node) return std::nullopt;
    switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
        char* s = nullptr;
        plist_get_string_val(node, &s);
        std::string out = s ? s : "";
        free(s);
        return out;
    }
    case PLIST_UINT: {
        uint64_t v = 0;
        plist_get_uint_val(node, &v);
        return decimal(v);
    }
    case PLIST_REAL: {
        double v = 0;
        plist_get_real_val(node, &v);
        return v < 0 ? std::nullopt : std::optional<std::string>(decimal(static_cast<uint64_t>(v)));
    }
    default: return std::nullopt;
    }
}

}  // namespace

bool Session::opReadDir() {
    std::string_view path;
    if (!fixedString(0, path)) return sendStatus(kInvalidArg);
    std::string real;
    if (Status s = paths_.resolve(path, {}, real); s != kSuccess) return sendStatus(s);
    DIR* dir = ::opendir(real.c_str());
    if (!dir) return sendStatus(statusFromErrno(errno));
    std::vector<std::string> names;
    while (dirent* e = ::readdir(dir)) {
        std::string_view n = e->d_name;
        if (n != "." && n != "..") names.emplace_back(n);
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    size_t used = 0;
    appendString(used, ".");
    appendString(used, "..");
    for (const auto& n : names) appendString(used, n);
    return sendBuilt(used);
}

bool Session::opFileInfo() {
    std::string_view path;
    if (!fixedString(0, path)) return sendStatus(kInvalidArg);
    std::string real;
    if (Status s = paths_.resolve(path, {.followLast = false}, real); s != kSuccess)
        return sendStatus(s);
    struct statx st {};
    if (::statx(AT_FDCWD, real.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &st) != 0)
        return sendStatus(statusFromErrno(errno));
    const uint64_t mtime = nanos(st.stx_mtime);
    // File systems without a birth time: the oldest time known stands in.
    const uint64_t birth = (st.stx_mask & STATX_BTIME) ? nanos(st.stx_btime)
                                                       : std::min(mtime, nanos(st.stx_ctime));
    size_t used = 0;
    appendString(used, "st_size");
    appendString(used, decimal(st.stx_size));
    appendString(used, "st_blocks");
    appendString(used, decimal(st.stx_blocks));
    appendString(used, "st_nlink");
    appendString(used, decimal(st.stx_nlink));
    appendString(used, "st_ifmt");
    appendString(used, fileTypeName(st.stx_mode));
    appendString(used, "st_mtime");
    appendString(used, decimal(mtime));
    appendString(used, "st_birthtime");
    appendString(used, decimal(birth));
    if (S_ISLNK(st.stx_mode)) {
        char target[PATH_MAX];
        ssize_t n = ::readlink(real.c_str(), target, sizeof target - 1);
        if (n >= 0) {
            appendString(used, "LinkTarget");
            appendString(used, std::string_view(target, static_cast<size_t>(n)));
        }
    }
    return sendBuilt(used);
}

// Values come from the profile's "AFC" dictionary; a profile without them
// reports the simulator's own file system under the root instead.
bool Session::opDeviceInfo() {
    plist_t afc = ctx_.profile ? plist_dict_get_item(ctx_.profile, "AFC") : nullptr;
    if (afc && plist_get_node_type(afc) != PLIST_DICT) afc = nullptr;
    struct statvfs vfs {};
    const bool haveVfs = ::statvfs(paths_.root().c_str(), &vfs) == 0;
    auto fallback = [&](uint64_t v) { return haveVfs ? std::optional<std::string>(decimal(v)) : std::nullopt; };

    size_t used = 0;
    auto add = [&](const char* key, std::optional<std::string> value) {
        if (!value) return;
        appendString(used, key);
        appendString(used, *value);
    };
    add("Model", profileText(afc, "Model"));
    // A partition with a size of its own reports that and what its files leave.
    auto total = partition_ ? std::optional(decimal(partition_->capacity())) : profileText(afc, "FSTotalBytes");
    add("FSTotalBytes", total ? total : fallback(uint64_t(vfs.f_blocks) * vfs.f_frsize));
    auto free = partition_ ? std::optional(decimal(partition_->freeBytes())) : profileText(afc, "FSFreeBytes");
    add("FSFreeBytes", free ? free : fallback(uint64_t(vfs.f_bavail) * vfs.f_frsize));
    auto block = profileText(afc, "FSBlockSize");
    add("FSBlockSize", block ? block : fallback(vfs.f_bsize));
    return sendBuilt(used);
}

// Like the device, a missing chain of parents is created and an existing
// directory is fine.
bool Session::opMakeDir() {
    std::string_view path;
    if (!fixedString(0, path)) return sendStatus(kInvalidArg);
    std::string real;
    if (Status s = paths_.resolve(path, {.followLast = true, .allowMissingParents = true}, real);
        s != kSuccess)
        return sendStatus(s);
    struct stat st {};
    if (::stat(real.c_str(), &st) == 0) return sendStatus(S_ISDIR(st.st_mode) ? kSuccess : kObjectExists);
    std::error_code ec;
    std::filesystem::create_directories(real, ec);
    return sendStatus(ec ? statusFromErrno(ec.value()) : kSuccess);
}

bool Session::opRemovePath(bool withContents) {
    std::string_view path;
    if (!fixedString(0, path)) return sendStatus(kInvalidArg);
    std::string real;
    if (Status s = paths_.resolve(path, {.followLast = false}, real); s != kSuccess)
        return sendStatus(s);
    if (paths_.isRoot(real)) return sendStatus(kPermDenied);
    struct stat st {};
    if (::lstat(real.c_str(), &st) != 0) return sendStatus(statusFromErrno(errno));
    return sendStatus(counted({&real}, [&] {
        if (withContents) {
            // remove_all never follows links inside the tree.
            std::error_code ec;
            std::filesystem::remove_all(real, ec);
            return ec ? statusFromErrno(ec.value()) : kSuccess;
        }
        const int rc = S_ISDIR(st.st_mode) ? ::rmdir(real.c_str()) : ::unlink(real.c_str());
        return rc == 0 ? kSuccess : statusFromErrno(errno);
    }));
}

bool Session::opRenamePath() {
    std::string_view from, to;
    size_t next = 0;
    if (!fixedString(0, from, &next) || !fixedString(next, to)) return sendStatus(kInvalidArg);
    std::string realFrom, realTo;
    if (Status s = paths_.resolve(from, {.followLast = false}, realFrom); s != kSuccess)
        return sendStatus(s);
    if (Status s = paths_.resolve(to, {.followLast = false}, realTo); s != kSuccess)
        return sendStatus(s);
    if (paths_.isRoot(realFrom) || paths_.isRoot(realTo)) return sendStatus(kPermDenied);
    // A file renamed over another frees the bytes of the one replaced.
    return sendStatus(counted({&realFrom, &realTo}, [&] {
        return ::rename(realFrom.c_str(), realTo.c_str()) == 0 ? kSuccess : statusFromErrno(errno);
    }));
}

bool Session::opMakeLink() {
    uint64_t type = 0;
    std::string_view target, name;
    size_t next = 0;
    if (!fixedU64(0, type) || !fixedString(8, target, &next) || !fixedString(next, name) ||
        target.empty())
        return sendStatus(kInvalidArg);
    std::string realName;
    if (Status s = paths_.resolve(name, {.followLast = false}, realName); s != kSuccess)
        return sendStatus(s);
    if (type == 2) {
        // A symbolic link keeps its target text; it is checked when followed.
        std::string text(target);
        return sendStatus(::symlink(text.c_str(), realName.c_str()) == 0 ? kSuccess : statusFromErrno(errno));
    }
    if (type != 1) return sendStatus(kInvalidArg);
    std::string realTarget;
    if (Status s = paths_.resolve(target, {.followLast = false}, realTarget); s != kSuccess)
        return sendStatus(s);
    // The partition counts a file once per name, as its first walk does.
    return sendStatus(counted({&realName}, [&] {
        return ::link(realTarget.c_str(), realName.c_str()) == 0 ? kSuccess : statusFromErrno(errno);
    }));
}

bool Session::opSetFileTime() {
    uint64_t mtime = 0;
    std::string_view path;
    if (!fixedU64(0, mtime) || !fixedString(8, path)) return sendStatus(kInvalidArg);
    std::string real;
    if (Status s = paths_.resolve(path, {}, real); s != kSuccess) return sendStatus(s);
    struct timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = static_cast<time_t>(mtime / 1000000000ull);
    times[1].tv_nsec = static_cast<long>(mtime % 1000000000ull);
    return sendStatus(::utimensat(AT_FDCWD, real.c_str(), times, 0) == 0 ? kSuccess : statusFromErrno(errno));
}

bool Session::opTruncatePath() {
    uint64_t size = 0;
    std::string_view path;
    if (!fixedU64(0, size) || !fixedString(8, path)) return sendStatus(kInvalidArg);
    std::string real;
    if (Status s = paths_.resolve(path, {}, real); s != kSuccess) return sendStatus(s);
    if (size > static_cast<uint64_t>(INT64_MAX)) return sendStatus(kInvalidArg);
    return sendStatus(resizeCounted(&real, -1, size));
}

}  // namespace zsim::afc
