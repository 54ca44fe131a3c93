// Where the worker keeps its files.
#pragma once

#include <filesystem>
#include <cstdint>
#include <string>
#include <vector>

namespace zeb {

std::filesystem::path exePath();
std::string exeName();
std::filesystem::path exeFolder();
// <logDir>/<exe name>-<pid>/, created when asked.
std::filesystem::path workFolder(bool create);
std::filesystem::path workSubFolder(const std::string& name);
bool deleteTree(const std::filesystem::path& path);
// <logDir>/ios_driver/, created.
std::filesystem::path driverFolder();
// "zebrelo/Backup/" under the user's data folder
// ($XDG_DATA_HOME, else ~/.local/share); empty when there is no home.
std::filesystem::path backupRoot();
// `start` plus the sizes of every file below `path` (low 32 bits each).
uint64_t folderSize(const std::filesystem::path& path, uint64_t start = 0);
// `path` when nothing is there (not even a link that leads nowhere), else
// "name(1).ext", "name(2).ext" ... up to 999; empty when all are taken.
std::filesystem::path uniqueLocalName(const std::filesystem::path& path);
// Every sub-text matching "Z_[0-9]+ASSETS", in order.
std::vector<std::string> matchAll(const std::string& text);

}  // namespace zeb
