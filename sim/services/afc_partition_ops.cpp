// The operations that change how many bytes the media partition holds,
// counted against its size when it has one.
#include "afc_session.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace zsim::afc {

Status Session::counted(std::initializer_list<const std::string*> paths, const std::function<Status()>& op) {
    if (!partition_) return op();
    Status status = kSuccess;
    partition_->update([&](uint64_t) {
        // Measured before and after rather than reasoned about, so that
        // renames over files, removals of whole trees and hard links all
        // come out right.
        int64_t before = 0, after = 0;
        for (const std::string* p : paths) before += static_cast<int64_t>(bytesUnder(*p));
        status = op();
        for (const std::string* p : paths) after += static_cast<int64_t>(bytesUnder(*p));
        return after - before;
    });
    return status;
}

bool Session::writeCounted(int fd, const unsigned char* p, size_t n, int& error) {
    if (!partition_) {
        if (!writeFull(fd, p, n)) error = errno;
        return error == 0;
    }
    partition_->update([&](uint64_t freeBytes) -> int64_t {
        struct stat st {};
        if (::fstat(fd, &st) != 0) {
            error = errno;
            return 0;
        }
        const bool append = (::fcntl(fd, F_GETFL) & O_APPEND) != 0;
        const off_t at = append ? st.st_size : ::lseek(fd, 0, SEEK_CUR);
        // Only bytes past the end take room; a write that does not fit
        // writes what does, like a full disk.
        const uint64_t end = static_cast<uint64_t>(std::max<off_t>(at, 0)) + n;
        const uint64_t size = static_cast<uint64_t>(st.st_size);
        const uint64_t growth = end > size ? end - size : 0;
        size_t fits = n;
        if (growth > freeBytes) {
            fits = static_cast<size_t>(n - std::min<uint64_t>(n, growth - freeBytes));
            error = ENOSPC;
        }
        if (fits > 0 && !writeFull(fd, p, fits)) error = errno;
        struct stat now {};
        if (::fstat(fd, &now) != 0) return 0;
        return static_cast<int64_t>(now.st_size) - static_cast<int64_t>(st.st_size);
    });
    return error == 0;
}

Status Session::resizeCounted(const std::string* path, int fd, uint64_t size) {
    auto resize = [&] {
        const int rc = path ? ::truncate(path->c_str(), static_cast<off_t>(size))
                            : ::ftruncate(fd, static_cast<off_t>(size));
        return rc == 0 ? kSuccess : statusFromErrno(errno);
    };
    if (!partition_) return resize();
    Status status = kSuccess;
    partition_->update([&](uint64_t freeBytes) -> int64_t {
        struct stat st {};
        if ((path ? ::stat(path->c_str(), &st) : ::fstat(fd, &st)) != 0) {
            status = statusFromErrno(errno);
            return 0;
        }
        const uint64_t old = static_cast<uint64_t>(st.st_size);
        if (size > old && size - old > freeBytes) {
            status = kNoSpaceLeft;
            return 0;
        }
        status = resize();
        return status == kSuccess ? static_cast<int64_t>(size) - static_cast<int64_t>(old) : 0;
    });
    return status;
}

}  // namespace zsim::afc
