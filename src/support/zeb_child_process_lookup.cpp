// Looking for running processes by name in /proc.
#include "zeb_child_process.h"

#include <dirent.h>
#include <fnmatch.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace zeb {

namespace {

// The names a process is known by: its executable's file name (readable for
// our own processes) and the kernel's short name.
std::vector<std::string> processNames(const std::string& pid) {
    std::vector<std::string> names;
    std::error_code error;
    auto exe = std::filesystem::read_symlink("/proc/" + pid + "/exe", error);
    if (!error) names.push_back(exe.filename().string());
    std::ifstream comm("/proc/" + pid + "/comm");
    std::string name;
    if (std::getline(comm, name) && !name.empty()) names.push_back(name);
    return names;
}

std::vector<std::string> splitPatterns(const std::string& patterns) {
    std::vector<std::string> list;
    size_t start = 0;
    while (start <= patterns.size()) {
        size_t end = patterns.find(';', start);
        if (end == std::string::npos) end = patterns.size();
        std::string pattern = patterns.substr(start, end - start);
        size_t first = pattern.find_first_not_of(" \t");
        size_t last = pattern.find_last_not_of(" \t");
        if (first != std::string::npos) list.push_back(pattern.substr(first, last - first + 1));
        start = end + 1;
    }
    return list;
}

}  // namespace

pid_t isProcessRunning(const std::string& patterns) {
    for (const auto& pattern : splitPatterns(patterns)) {
        DIR* proc = opendir("/proc");
        if (!proc) return 0;
        pid_t found = 0;
        while (dirent* entry = readdir(proc)) {
            char* end = nullptr;
            long pid = std::strtol(entry->d_name, &end, 10);
            if (pid <= 0 || *end != '\0') continue;
            for (const auto& name : processNames(entry->d_name)) {
                if (fnmatch(pattern.c_str(), name.c_str(), 0) == 0) {
                    found = static_cast<pid_t>(pid);
                    break;
                }
            }
            if (found) break;
        }
        closedir(proc);
        if (found) return found;
    }
    return 0;
}

pid_t isItunesRunning() { return 0; }

std::string backupHelperPath() { return findProgram("idevicebackup2"); }

}  // namespace zeb
