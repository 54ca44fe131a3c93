// Files and folders the worker makes on the computer. Each is made at the
// very path given and never through a symbolic link standing there: a link
// planted in a folder the parent named (dangling or not, left by another
// local process) cannot send the worker's writes somewhere else.
#pragma once

#include <cstdio>
#include <filesystem>

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

}  // namespace zeb
