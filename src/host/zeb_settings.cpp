#include "zeb_settings.h"

#include <cstdlib>
#include <ctime>

namespace zeb {

namespace {

Settings processSettings;

// _wtoi semantics: leading digits, 0 when there are none.
int32_t toInt(const std::vector<std::string>& args, size_t position) {
    return position < args.size() ? static_cast<int32_t>(atoi(args[position].c_str())) : 0;
}

std::string textAt(const std::vector<std::string>& args, size_t position) {
    return position < args.size() ? args[position] : std::string();
}

}  // namespace

std::filesystem::path dailyLogDir(const std::string& folderName) {
    time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char day[16];
    strftime(day, sizeof day, "%Y%m%d", &local);
    std::error_code error;
    std::filesystem::path temp = std::filesystem::temp_directory_path(error);
    if (error) temp = "/tmp";
    return temp / folderName / day / "";
}

Settings parseSettings(const std::vector<std::string>& args) {
    Settings parsed;
    parsed.parentPort = toInt(args, 0);
    parsed.parentPid = toInt(args, 1);
    parsed.consoleEnabled = toInt(args, 2) != 0;
    parsed.testModuleEnabled = toInt(args, 3) != 0;
    parsed.logEnabled = toInt(args, 4) != 0;
    parsed.productVersion = textAt(args, 5);
    parsed.logFolderName = textAt(args, 6);
    parsed.productName = textAt(args, 7);
    parsed.runMode = toInt(args, 8);
    if (parsed.runMode == 1 && args.size() > 10) parsed.taskId = atoll(args[10].c_str());
    parsed.logDir = dailyLogDir(parsed.logFolderName);
    return parsed;
}

const Settings& settings() { return processSettings; }
void setSettings(Settings value) { processSettings = std::move(value); }

}  // namespace zeb
