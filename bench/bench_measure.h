// What the benchmarks measure beside their clocks: the bytes a folder
// holds, a process's peak memory, and the median of repeated rounds.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

inline uint64_t folderBytes(const std::filesystem::path& folder) {
    uint64_t total = 0;
    std::error_code error;
    for (std::filesystem::recursive_directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        if (it->is_regular_file(error)) total += it->file_size(error);
    return total;
}

// VmHWM of the process in MB; -1 when it cannot be read.
inline double peakMegabytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0) return std::atof(line.c_str() + 6) / 1024.0;
    return -1;
}

// CPU seconds a process has used so far, all its threads, user and system
// (from /proc, in the kernel's clock ticks); -1 when it cannot be read.
inline double processCpuSeconds(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    // The command name may hold blanks; the fields are counted after it.
    const size_t close = text.rfind(')');
    if (close == std::string::npos) return -1;
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    double user = -1, system = -1;
    for (int index = 3; fields >> field && index <= 15; ++index) {
        if (index == 14) user = std::atof(field.c_str());
        if (index == 15) system = std::atof(field.c_str());
    }
    const long ticks = sysconf(_SC_CLK_TCK);
    return user < 0 || system < 0 || ticks <= 0 ? -1 : (user + system) / static_cast<double>(ticks);
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Busy time of the whole machine over an interval, from /proc/stat: how
// much of its cores the work kept busy. Near 1 means the cores bound the
// work; well below 1 means it waited (a turn-taking protocol, a sleep).
class MachineBusy {
public:
    MachineBusy() : start_(read()) {}
    // Busy share of all cores since construction, 0..1.
    double share() const {
        const Ticks now = read();
        const double total = static_cast<double>(now.total - start_.total);
        return total > 0 ? static_cast<double>(now.busy - start_.busy) / total : 0.0;
    }

private:
    struct Ticks {
        uint64_t busy = 0, total = 0;
    };
    static Ticks read() {
        std::ifstream stat("/proc/stat");
        std::string cpu;
        stat >> cpu;
        Ticks ticks;
        uint64_t value = 0;
        for (int field = 0; field < 8 && stat >> value; ++field) {
            ticks.total += value;
            if (field != 3 && field != 4) ticks.busy += value;  // idle and iowait
        }
        return ticks;
    }
    Ticks start_;
};
