#include "zeb_local_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace zeb {

namespace {

// O_NOFOLLOW refuses a link as the last component; O_NONBLOCK keeps a FIFO
// without a reader from holding the open, and the regular-file check then
// refuses it (and any device node) before a byte is written.
FILE* openRegular(const std::filesystem::path& path, int flags) {
    const int fd = ::open(path.c_str(), flags | O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
    if (fd < 0) return nullptr;
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) || fcntl(fd, F_SETFL, 0) != 0) {
        ::close(fd);
        return nullptr;
    }
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

}  // namespace zeb
