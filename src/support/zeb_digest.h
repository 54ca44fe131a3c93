#pragma once

#include <filesystem>
#include <string>

namespace zeb {

// MD5 of a file's content as 32 lower-case hex digits; empty on failure.
std::string fileMd5(const std::filesystem::path& path);

}  // namespace zeb
