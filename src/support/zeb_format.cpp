#include "zeb_format.h"

#include <cmath>
#include <cstdlib>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace zeb {

namespace {

std::string localText(time_t when) {
    tm local{};
    if (!localtime_r(&when, &local)) return {};
    char text[64];
    snprintf(text, sizeof text, "%.4d-%.2d-%.2d %.2d:%.2d:%.2d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
             local.tm_hour, local.tm_min, local.tm_sec);
    return text;
}

}  // namespace

std::string formatSize(double bytes) {
    char text[64];
    double kb = bytes / 1024.0;
    double mb = kb / 1024.0;
    double gb = mb / 1024.0;
    if (kb < 1.0)
        snprintf(text, sizeof text, "%.2f B", bytes);
    else if (mb < 1.0)
        snprintf(text, sizeof text, "%.2f KB", kb);
    else if (gb < 1.0)
        snprintf(text, sizeof text, "%.2f MB", mb);
    else
        snprintf(text, sizeof text, "%.2f GB", gb);
    return text;
}

std::string utcTextToLocal(const char* text) {
    if (!text || strlen(text) < 19) return {};
    tm utc{};
    utc.tm_year = atoi(text) - 1900;
    utc.tm_mon = atoi(text + 5) - 1;
    utc.tm_mday = atoi(text + 8);
    utc.tm_hour = atoi(text + 11);
    utc.tm_min = atoi(text + 14);
    utc.tm_sec = atoi(text + 17);
    time_t when = timegm(&utc);
    if (when == static_cast<time_t>(-1)) return {};
    return localText(when);
}

std::string appleTimeToText(int64_t value) {
    if (value < 0) value = 0;
    // Far beyond any calendar in seconds means the column counts nanoseconds.
    std::string text;
    if (value <= INT64_MAX - kAppleEpoch) text = localText(static_cast<time_t>(kAppleEpoch + value));
    if (text.empty()) text = localText(static_cast<time_t>(kAppleEpoch + value / 1000000000));
    return text;
}

std::string secondsToText(double seconds) {
    long long whole = static_cast<long long>(std::floor(seconds + 0.5));
    long long hours = whole / 3600;
    int minutes = static_cast<int>((whole / 60) % 60);
    int secs = static_cast<int>(whole % 60);
    char text[64];
    if (hours > 0)
        snprintf(text, sizeof text, "%.2lld:%.2d:%.2d", hours, minutes, secs);
    else
        snprintf(text, sizeof text, "%.2d:%.2d", minutes, secs);
    return text;
}

std::string escapeXmlText(const std::string& value) {
    std::string out;
    out.reserve(value.size());
    for (char c : value) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&apos;"; break;
            default: out.push_back(c);
        }
    }
    return out;
}

}  // namespace zeb
