#include "zeb_paths.h"

#include "zeb_settings.h"

#include <unistd.h>

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

}  // namespace zeb
