// What a benchmark measures on the computer's side: the bytes a folder holds.
#pragma once

#include <cstdint>
#include <filesystem>
#include <system_error>

inline uint64_t folderBytes(const std::filesystem::path& folder) {
    uint64_t total = 0;
    std::error_code error;
    for (std::filesystem::recursive_directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        if (it->is_regular_file(error)) total += it->file_size(error);
    return total;
}
