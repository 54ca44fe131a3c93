#include "zeb_paths.h"

#include "zeb_local_file.h"
#include "zeb_settings.h"

#include <unistd.h>

#include <cstdlib>
#include <regex>

namespace zeb {

std::filesystem::path exePath() {
    std::error_code error;
    auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path() : path;
}

std::string exeName() { return exePath().filename().string(); }

std::filesystem::path exeFolder() { return exePath().parent_path() / ""; }

std::filesystem::path workFolder(bool create) {
    auto folder = settings().logDir / (exeName() + "-" + std::to_string(getpid())) / "";
    if (create) {
        std::error_code error;
        std::filesystem::create_directories(folder, error);
    }
    return folder;
}

std::filesystem::path workSubFolder(const std::string& name) {
    auto folder = workFolder(true) / name / "";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    return folder;
}

bool deleteTree(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::remove_all(path, error);
    return !error;
}

std::filesystem::path driverFolder() {
    auto folder = settings().logDir / "ios_driver" / "";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    return folder;
}

std::filesystem::path backupRoot() {
    std::filesystem::path data;
    if (const char* xdg = getenv("XDG_DATA_HOME"); xdg && *xdg)
        data = xdg;
    else if (const char* home = getenv("HOME"); home && *home)
        data = std::filesystem::path(home) / ".local" / "share";
    else
        return {};
    return data / "zebrelo" / "Backup" / "";
}

uint64_t folderSize(const std::filesystem::path& path, uint64_t start) {
    std::error_code error;
    for (std::filesystem::directory_iterator it(path, error), end; !error && it != end; it.increment(error)) {
        if (it->is_directory(error) && !it->is_symlink(error))
            start = folderSize(it->path(), start);
        else if (it->is_regular_file(error))
            start += it->file_size(error) & 0xFFFFFFFFu;
    }
    return start;
}

std::filesystem::path uniqueLocalName(const std::filesystem::path& path) {
    // A link counts as taken even when it leads nowhere: the name given out
    // is then created, never written through the link.
    if (!localNameTaken(path)) return path;
    const std::string text = path.string();
    size_t slash = text.find_last_of('/');
    size_t dot = text.find_last_of('.');
    // A dot inside a folder name, or a leading dot, is not an extension.
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash) ||
        dot == (slash == std::string::npos ? 0 : slash + 1))
        dot = text.size();
    for (int n = 1; n <= 999; ++n) {
        std::filesystem::path candidate = text.substr(0, dot) + "(" + std::to_string(n) + ")" + text.substr(dot);
        if (!localNameTaken(candidate)) return candidate;
    }
    return {};
}

std::vector<std::string> matchAll(const std::string& text) {
    static const std::regex pattern("Z_[0-9]+ASSETS");
    std::vector<std::string> found;
    for (std::sregex_iterator it(text.begin(), text.end(), pattern), end; it != end; ++it) found.push_back(it->str());
    return found;
}

}  // namespace zeb
