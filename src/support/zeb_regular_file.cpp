#include "zeb_regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace zeb {

int openRegularFile(const std::filesystem::path& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) return -1;
    struct stat info {};
    int failure = 0;
    if (::fstat(fd, &info) != 0)
        failure = errno;
    else if (!S_ISREG(info.st_mode))
        failure = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    if (failure == 0) {
        // Reads of a regular file block as they always do.
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
        return fd;
    }
    ::close(fd);
    errno = failure;
    return -1;
}

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
