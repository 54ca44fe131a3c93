#include "zeb_sync_clock.h"

#include "zeb_format.h"

#include <cstdio>
#include <ctime>

namespace zeb {

SyncClock syncClockNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    SyncClock clock;
    clock.year = static_cast<unsigned>(local.tm_year + 1900);
    clock.month = static_cast<unsigned>(local.tm_mon + 1);
    clock.day = static_cast<unsigned>(local.tm_mday);
    clock.hour = static_cast<unsigned>(local.tm_hour);
    clock.minute = static_cast<unsigned>(local.tm_min);
    clock.second = static_cast<unsigned>(local.tm_sec);
    clock.milliseconds = static_cast<unsigned>(now.tv_nsec / 1000000);
    clock.bias = static_cast<int32_t>(-local.tm_gmtoff / 60);
    return clock;
}

std::string syncStartText(const char* startTemplate, const SyncClock& clock) {
    const unsigned zoneHours = static_cast<unsigned>(-(clock.bias / 60));
    char text[1024] = {0};  // a filled start template fits with room to spare
    snprintf(text, sizeof text, startTemplate, clock.year, clock.month, clock.day, clock.hour, clock.milliseconds,
             clock.second, zoneHours, 0u);
    return text;
}

namespace {

bool digitsAt(std::string_view text, size_t position, size_t count) {
    for (size_t i = position; i < position + count; ++i)
        if (text[i] < '0' || text[i] > '9') return false;
    return true;
}

}  // namespace

bool deviceDateToLocal(std::string_view text, std::string& local) {
    // The pattern [0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z,
    // checked by hand: it runs on every field of every record.
    if (text.size() != 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
        text[16] != ':' || text[19] != 'Z')
        return false;
    if (!digitsAt(text, 0, 4) || !digitsAt(text, 5, 2) || !digitsAt(text, 8, 2) || !digitsAt(text, 11, 2) ||
        !digitsAt(text, 14, 2) || !digitsAt(text, 17, 2))
        return false;
    local = utcTextToLocal(std::string(text).c_str());
    return true;
}

}  // namespace zeb
