// Local files someone else may have put in the worker's way. Files and
// folders the worker makes are made at the very path given and never through
// a symbolic link standing there: a link planted in a folder the parent named
// (dangling or not, left by another local process) cannot send the worker's
// writes somewhere else. Files it reads are read only when they are regular
// files (a link to one is followed), never a FIFO, a device or a folder, and
// never past the caller's bound.
#pragma once

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <string>

namespace zeb {

// True when anything is at `path`, a link that leads nowhere included.
bool localNameTaken(const std::filesystem::path& path);

// A new regular file at `path`, open for writing; null when anything is
// there already (file, folder, link) or it cannot be made.
FILE* createLocalFile(const std::filesystem::path& path);

// `path` open for writing from its start: an existing regular file is
// overwritten, a missing one made; null when a link or anything other than
// a regular file stands there.
FILE* overwriteLocalFile(const std::filesystem::path& path);

// The folder `path` with its missing parents; true when it is a real
// folder afterwards. A link or a file in its place is not followed nor
// taken: false.
bool makeLocalFolder(const std::filesystem::path& path);

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
