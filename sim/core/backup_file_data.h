// The bytes of one backup file, read in order: copied when the file was made
// up front, read from the device's own file when it has one, otherwise
// generated from its seed (the same bytes however the reads are cut).
#pragma once

#include "core/backup_content.h"

#include <cstddef>
#include <cstdint>

namespace zsim {

class BackupFileReader {
public:
    explicit BackupFileReader(const BackupItem& item);
    ~BackupFileReader();
    BackupFileReader(const BackupFileReader&) = delete;
    BackupFileReader& operator=(const BackupFileReader&) = delete;

    // Up to n bytes; 0 once the file is done.
    size_t read(char* out, size_t n);
    uint64_t remaining() const { return item_.size - position_; }

private:
    uint64_t nextWord();
    size_t readSource(char* out, size_t n);

    const BackupItem& item_;
    uint64_t position_ = 0;
    uint64_t state_;
    uint64_t word_ = 0;  // the word position_ is inside of, when not aligned
    int fd_ = -1;        // the source file, opened at the first read
};

}  // namespace zsim
