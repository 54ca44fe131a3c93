#include "core/backup_file_data.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zsim {

BackupFileReader::BackupFileReader(const BackupItem& item) : item_(item), state_(item.seed | 1) {}

BackupFileReader::~BackupFileReader() {
    if (fd_ >= 0) ::close(fd_);
}

// The size was promised when the backup was planned: a file that shrank
// or vanished since reads as zeros to the end, one that grew is cut.
size_t BackupFileReader::readSource(char* out, size_t n) {
    if (fd_ < 0 && position_ == 0) fd_ = ::open(item_.source.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    size_t done = 0;
    while (fd_ >= 0 && done < n) {
        const ssize_t got = ::read(fd_, out + done, n - done);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<size_t>(got);
    }
    memset(out + done, 0, n - done);
    position_ += n;
    return n;
}

// xorshift64*: a few cycles per 8 bytes, so generating never limits a transfer.
uint64_t BackupFileReader::nextWord() {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return state_ * 0x2545F4914F6CDD1Dull;
}

size_t BackupFileReader::read(char* out, size_t n) {
    n = static_cast<size_t>(std::min<uint64_t>(n, remaining()));
    if (!item_.source.empty()) return readSource(out, n);
    if (item_.bytes) {
        memcpy(out, item_.bytes->data() + position_, n);
        position_ += n;
        return n;
    }
    size_t done = 0;
    auto byteOfWord = [this](uint64_t at) {
        unsigned char b[8];
        memcpy(b, &word_, 8);
        return static_cast<char>(b[at % 8]);
    };
    while (done < n && position_ % 8 != 0) out[done++] = byteOfWord(position_++);
    while (n - done >= 8) {
        word_ = nextWord();
        memcpy(out + done, &word_, 8);
        done += 8;
        position_ += 8;
    }
    if (done < n) {
        word_ = nextWord();
        while (done < n) out[done++] = byteOfWord(position_++);
    }
    return n;
}

}  // namespace zsim
