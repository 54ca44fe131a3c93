// zlib streams for packet tails (and any stored zlib stream).
#pragma once

#include <cstddef>
#include <string>

namespace bas {

// Level 9, zlib format. Output grows 1024 bytes at a time. False on failure;
// what was produced so far stays in out.
bool compressBuffer(std::string& out, const void* data, size_t length);
// What a command's tail may inflate to. The largest tail a parent sends (a
// calendar or a contact with its children, a list of packages) is a few
// hundred kilobytes; a small stream that inflates past this is refused
// before its memory is taken.
inline constexpr size_t kInflateLimit = 64u << 20;

// An empty input is a failure with an empty out; so is a stream whose output
// would pass `limit` bytes (out is cleared).
bool decompressBuffer(std::string& out, const void* data, size_t length, size_t limit = kInflateLimit);

}  // namespace bas
