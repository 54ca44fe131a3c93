// Reading a local file that someone else may have put there: only a regular
// file is read (a link to one is followed), never a FIFO, a device or a
// folder, and never more than the caller's bound.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace zeb {

// Opens `path` read-only when it is a regular file; the descriptor, or -1
// with errno set (EISDIR for a folder, EINVAL for anything else that is no
// regular file). The open itself never waits: a FIFO with no writer behind
// it would otherwise hold the caller for good.
int openRegularFile(const std::filesystem::path& path);

// The whole content of a regular file of at most `limit` bytes into `bytes`;
// false (and `bytes` empty) when it cannot be opened, is no regular file, or
// holds more than `limit` bytes, whatever its size said when it was opened.
bool readRegularFile(const std::filesystem::path& path, size_t limit, std::string& bytes);

}  // namespace zeb
