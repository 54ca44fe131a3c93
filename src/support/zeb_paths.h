// Where the worker keeps its files.
#pragma once

#include <filesystem>
#include <string>

namespace zeb {

std::filesystem::path exePath();
std::string exeName();
std::filesystem::path exeFolder();
// <logDir>/<exe name>-<pid>/, created when asked.
std::filesystem::path workFolder(bool create);
std::filesystem::path workSubFolder(const std::string& name);
bool deleteTree(const std::filesystem::path& path);

}  // namespace zeb
