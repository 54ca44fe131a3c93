// zlib streams for packet tails (and any stored zlib stream).
#pragma once

#include <cstddef>
#include <string>

namespace bas {

// Level 9, zlib format. Output grows 1024 bytes at a time. False on failure;
// what was produced so far stays in out.
bool compressBuffer(std::string& out, const void* data, size_t length);
// An empty input is a failure with an empty out.
bool decompressBuffer(std::string& out, const void* data, size_t length);

}  // namespace bas
