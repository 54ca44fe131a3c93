#include "zeb_local_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace zeb {

namespace {

// O_NONBLOCK keeps a FIFO without a peer from holding the open; the
// regular-file check then refuses it (and any device node or folder) before
// a byte moves, and I/O on what is left blocks as it always does. -1 with
// errno set on a refusal.
int openRegularDescriptor(const std::filesystem::path& path, int flags) {
    const int fd = ::open(path.c_str(), flags | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0666);
    if (fd < 0) return -1;
    struct stat info {};
    int failure = 0;
    if (::fstat(fd, &info) != 0)
        failure = errno;
    else if (!S_ISREG(info.st_mode))
        failure = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    else if (::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0)
        failure = errno;
    if (failure == 0) return fd;
    ::close(fd);
    errno = failure;
    return -1;
}

// O_NOFOLLOW refuses a link as the last component of a file written.
FILE* openRegular(const std::filesystem::path& path, int flags) {
    const int fd = openRegularDescriptor(path, flags | O_WRONLY | O_NOFOLLOW);
    if (fd < 0) return nullptr;
    FILE* file = fdopen(fd, "wb");
    if (!file) ::close(fd);
    return file;
}

}  // namespace

bool localNameTaken(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::exists(std::filesystem::symlink_status(path, error));
}

FILE* createLocalFile(const std::filesystem::path& path) { return openRegular(path, O_CREAT | O_EXCL); }

FILE* overwriteLocalFile(const std::filesystem::path& path) { return openRegular(path, O_CREAT | O_TRUNC); }

bool makeLocalFolder(const std::filesystem::path& path) {
    // "a/b/" would let lstat follow a link at "a/b": the name goes bare.
    std::filesystem::path folder = path;
    if (!folder.has_filename()) folder = folder.parent_path();
    std::error_code error;
    if (folder.has_parent_path()) std::filesystem::create_directories(folder.parent_path(), error);
    if (::mkdir(folder.c_str(), 0777) == 0) return true;
    if (errno != EEXIST) return false;
    struct stat status {};
    return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

int openRegularFile(const std::filesystem::path& path) { return openRegularDescriptor(path, O_RDONLY); }

bool readRegularFile(const std::filesystem::path& path, size_t limit, std::string& bytes) {
    bytes.clear();
    const int fd = openRegularFile(path);
    if (fd < 0) return false;
    // The size fstat gives is only a hint: a file in /proc says 0, another
    // may grow while it is read. The bound is what the reads obey.
    struct stat info {};
    if (::fstat(fd, &info) == 0 && info.st_size > 0 && static_cast<uint64_t>(info.st_size) <= limit)
        bytes.reserve(static_cast<size_t>(info.st_size));
    char buffer[64 * 1024];
    bool fits = true;
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fits = false;
        if (got <= 0) break;
        if (static_cast<size_t>(got) > limit - bytes.size()) {
            fits = false;
            break;
        }
        bytes.append(buffer, static_cast<size_t>(got));
    }
    ::close(fd);
    if (!fits) bytes.clear();
    return fits;
}

}  // namespace zeb
