// The process settings from the command line, written once before any of
// the program's threads start and read without locks afterwards.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace zeb {

struct Settings {
    int32_t parentPort = 0;      // 0: the hub never connects
    int32_t parentPid = 0;
    bool consoleEnabled = false;
    bool testModuleEnabled = false;
    bool logEnabled = false;
    std::string productVersion;
    std::string logFolderName;
    std::string productName;
    int32_t runMode = 0;         // 0 worker of the interface, 1 one task, 2 elevated copy
    int64_t taskId = 0;          // read only in run mode 1
    // <temp>/<logFolderName>/<YYYYMMDD>/ of the day the process started.
    std::filesystem::path logDir;
};

// Reads the positional arguments (args[0] is the first real argument, not
// the program). Missing positions read as 0 or empty text.
Settings parseSettings(const std::vector<std::string>& args);
// <temp>/<folder>/<local date %Y%m%d>/
std::filesystem::path dailyLogDir(const std::string& folderName);

const Settings& settings();
void setSettings(Settings value);  // start-up only

}  // namespace zeb
