#include "zctl_text.h"

#include <cstdio>

namespace zctl {

std::string sizeText(double bytes) {
    const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    int unit = 0;
    while (bytes >= 1024 && unit < 4) {
        bytes /= 1024;
        ++unit;
    }
    char text[32];
    snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
    return text;
}

std::string clockText(double seconds) {
    if (seconds < 0) return "--:--";
    const long whole = static_cast<long>(seconds);
    char text[32];
    snprintf(text, sizeof text, "%02ld:%02ld", whole / 60, whole % 60);
    return text;
}

}  // namespace zctl
