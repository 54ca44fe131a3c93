#include "core/backup_file_data.h"

#include <algorithm>
#include <cstring>

namespace zsim {

BackupFileReader::BackupFileReader(const BackupItem& item) : item_(item), state_(item.seed | 1) {}

// xorshift64*: a few cycles per 8 bytes, so generating never limits a transfer.
uint64_t BackupFileReader::nextWord() {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return state_ * 0x2545F4914F6CDD1Dull;
}

size_t BackupFileReader::read(char* out, size_t n) {
    n = static_cast<size_t>(std::min<uint64_t>(n, remaining()));
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
