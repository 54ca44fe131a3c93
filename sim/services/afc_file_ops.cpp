// Operations on files the host opened: the data path of the service.
#include "afc_session.h"

#include "core/fault_points.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace zsim::afc {
namespace {

// The host's six open modes, as the device's C library reads them.
int openFlags(uint64_t mode) {
    switch (mode) {
    case 1: return O_RDONLY;                       // r
    case 2: return O_RDWR | O_CREAT;               // r+
    case 3: return O_WRONLY | O_CREAT | O_TRUNC;   // w
    case 4: return O_RDWR | O_CREAT | O_TRUNC;     // w+
    case 5: return O_WRONLY | O_APPEND | O_CREAT;  // a
    case 6: return O_RDWR | O_APPEND | O_CREAT;    // a+
    default: return -1;
    }
}

// Reads until n bytes or the end of the file.
ssize_t readFull(int fd, unsigned char* out, size_t n) {
    size_t got = 0;
    while (got < n) {
        ssize_t r = ::read(fd, out + got, n - got);
        if (r < 0) {
            if (errno == EINTR) continue;
            return got > 0 ? static_cast<ssize_t>(got) : -1;
        }
        if (r == 0) break;
        got += static_cast<size_t>(r);
    }
    return static_cast<ssize_t>(got);
}

}  // namespace

bool writeFull(int fd, const unsigned char* p, size_t n) {
    while (n > 0) {
        ssize_t w = ::write(fd, p, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        p += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

bool Session::opFileOpen() {
    uint64_t mode = 0;
    std::string_view path;
    if (!fixedU64(0, mode) || !fixedString(8, path)) return sendStatus(kInvalidArg);
    const int flags = openFlags(mode);
    if (flags < 0) return sendStatus(kInvalidArg);
    if (files_.size() >= kMaxOpenFiles) return sendStatus(kNoResources);
    std::string real;
    if (Status s = paths_.resolve(path, {}, real); s != kSuccess) return sendStatus(s);
    // The path was resolved component by component; a link appearing at the
    // end since then is not followed. Truncating modes free the old bytes.
    int fd = -1;
    auto openFile = [&] {
        fd = ::open(real.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, 0644);
        return fd < 0 ? statusFromErrno(errno) : kSuccess;
    };
    const Status opened = (flags & O_TRUNC) ? counted({&real}, openFile) : openFile();
    if (fd < 0) return sendStatus(opened);
    struct stat st {};
    if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
        ::close(fd);
        return sendStatus(kObjectIsDir);
    }
    const uint64_t handle = nextHandle_++;
    files_[handle] = OpenFile{fd};
    return sendU64(kOpFileOpenResult, handle);
}

// Read answers carry everything asked for up to the end of the file. A
// small read goes from the file straight into the answer buffer and leaves
// in one write. A larger one promises its length in the header and then
// streams the file in pieces, so that the host is already receiving one
// piece while the next is read from the file.
bool Session::opRead() {
    uint64_t handle = 0, length = 0;
    if (!fixedU64(0, handle) || !fixedU64(1, length)) return sendStatus(kInvalidArg);
    const int fd = fileFd(handle);
    if (fd < 0) return sendStatus(kInvalidArg);

    // File data passes the afc-read fault point on its way out (header
    // bytes go with the first of it): an armed fault fires with exactly the
    // bytes it let through sent.
    auto sendData = [this](const unsigned char* from, size_t headerBytes, size_t fileBytes) {
        while (fileBytes > 0) {
            const size_t part = static_cast<size_t>(passFaultPoint(ctx_.udid, "afc-read", fileBytes));
            if (!waitWhileStalled()) return false;
            if (!stream_.writeAll(from, headerBytes + part)) return false;
            from += headerBytes + part;
            headerBytes = 0;
            fileBytes -= part;
        }
        return headerBytes == 0 || stream_.writeAll(from, headerBytes);
    };

    struct stat st {};
    const off_t pos = ::lseek(fd, 0, SEEK_CUR);
    const bool sized = pos >= 0 && ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    if (!sized || length <= kPiece) {
        // Devices and pipes on the system tree have no size to promise.
        const size_t want = static_cast<size_t>(std::min<uint64_t>(length, kChunk));
        unsigned char* data = answerSpace(want);
        ssize_t got = readFull(fd, data, want);
        if (got < 0) return sendStatus(statusFromErrno(errno));
        Header answer{kHeaderSize + static_cast<uint64_t>(got), kHeaderSize, request_.packetNum, kOpData};
        encodeHeader(buffer_.data(), answer);
        return sendData(buffer_.data(), kHeaderSize, static_cast<size_t>(got));
    }

    if ((::fcntl(fd, F_GETFL) & O_ACCMODE) == O_WRONLY) return sendStatus(kInvalidArg);
    const uint64_t available = st.st_size > pos ? static_cast<uint64_t>(st.st_size - pos) : 0;
    const uint64_t total = std::min(length, available);
    unsigned char* data = answerSpace(kPiece);
    Header h{kHeaderSize + total, kHeaderSize, request_.packetNum, kOpData};
    encodeHeader(buffer_.data(), h);
    uint64_t left = total;
    size_t pending = kHeaderSize;  // the header leaves with the first piece
    while (left > 0) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(left, kPiece));
        const ssize_t got = std::max<ssize_t>(readFull(fd, data, want), 0);
        // The file shrank under us: the promised length still has to be
        // delivered, so the rest reads as zeros.
        if (static_cast<size_t>(got) < want) std::memset(data + got, 0, want - static_cast<size_t>(got));
        if (!sendData(data - pending, pending, want)) return false;
        pending = 0;
        left -= want;
    }
    if (pending) return stream_.writeAll(buffer_.data(), kHeaderSize);
    return true;
}

// The payload streams from the pipe into the file through the buffer; an
// error keeps consuming the payload so the next header is found, then
// answers the first failure.
bool Session::opWrite() {
    uint64_t handle = 0;
    if (!fixedU64(0, handle)) return sendStatus(kInvalidArg);
    const int fd = fileFd(handle);
    int error = fd < 0 ? EBADF : 0;
    unsigned char* data = answerSpace(static_cast<size_t>(std::min<uint64_t>(payloadLeft_, kChunk)));
    const size_t room = buffer_.size() - kHeaderSize;
    while (payloadLeft_ > 0) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(payloadLeft_, room));
        if (!stream_.readExact(data, n)) return false;
        payloadLeft_ -= n;
        // File data passes the afc-write fault point: an armed fault fires
        // with exactly the bytes it let through in the file.
        for (size_t done = 0; error == 0 && done < n;) {
            const size_t part = static_cast<size_t>(passFaultPoint(ctx_.udid, "afc-write", n - done));
            if (!waitWhileStalled()) return false;
            writeCounted(fd, data + done, part, error);
            done += part;
        }
    }
    if (fd < 0) return sendStatus(kInvalidArg);
    return sendStatus(statusFromErrno(error));
}

bool Session::opSeek() {
    uint64_t handle = 0, whence = 0, offset = 0;
    if (!fixedU64(0, handle) || !fixedU64(1, whence) || !fixedU64(2, offset)) return sendStatus(kInvalidArg);
    const int fd = fileFd(handle);
    if (fd < 0 || whence > 2) return sendStatus(kInvalidArg);
    static constexpr int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (::lseek(fd, static_cast<off_t>(static_cast<int64_t>(offset)), kWhence[whence]) < 0)
        return sendStatus(statusFromErrno(errno));
    return sendStatus(kSuccess);
}

bool Session::opTell() {
    uint64_t handle = 0;
    if (!fixedU64(0, handle)) return sendStatus(kInvalidArg);
    const int fd = fileFd(handle);
    if (fd < 0) return sendStatus(kInvalidArg);
    const off_t pos = ::lseek(fd, 0, SEEK_CUR);
    if (pos < 0) return sendStatus(statusFromErrno(errno));
    return sendU64(kOpTellResult, static_cast<uint64_t>(pos));
}

bool Session::opSetSize() {
    uint64_t handle = 0, size = 0;
    if (!fixedU64(0, handle) || !fixedU64(1, size)) return sendStatus(kInvalidArg);
    const int fd = fileFd(handle);
    if (fd < 0 || size > static_cast<uint64_t>(INT64_MAX)) return sendStatus(kInvalidArg);
    return sendStatus(resizeCounted(nullptr, fd, size));
}

bool Session::opClose() {
    uint64_t handle = 0;
    if (!fixedU64(0, handle)) return sendStatus(kInvalidArg);
    auto it = files_.find(handle);
    if (it == files_.end()) return sendStatus(kInvalidArg);
    ::close(it->second.fd);
    files_.erase(it);
    return sendStatus(kSuccess);
}

// The host's lock operations are the device's flock() bits: shared 1,
// exclusive 2, never block 4, unlock 8.
bool Session::opLock() {
    uint64_t handle = 0, op = 0;
    if (!fixedU64(0, handle) || !fixedU64(1, op)) return sendStatus(kInvalidArg);
    const int fd = fileFd(handle);
    const uint64_t kind = op & ~uint64_t(LOCK_NB);
    if (fd < 0 || (kind != LOCK_SH && kind != LOCK_EX && kind != LOCK_UN)) return sendStatus(kInvalidArg);
    return sendStatus(::flock(fd, static_cast<int>(op)) == 0 ? kSuccess : statusFromErrno(errno));
}

}  // namespace zsim::afc
