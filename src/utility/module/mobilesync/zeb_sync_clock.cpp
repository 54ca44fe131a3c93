#include "zeb_sync_clock.h"

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

int number(std::string_view text, size_t position, size_t count) {
    int value = 0;
    for (size_t i = position; i < position + count; ++i) value = value * 10 + (text[i] - '0');
    return value;
}

}  // namespace

bool utcTextToLocal(std::string_view text, std::string& local) {
    // The pattern [0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z,
    // checked by hand: it runs on every field of every record.
    if (text.size() != 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
        text[16] != ':' || text[19] != 'Z')
        return false;
    if (!digitsAt(text, 0, 4) || !digitsAt(text, 5, 2) || !digitsAt(text, 8, 2) || !digitsAt(text, 11, 2) ||
        !digitsAt(text, 14, 2) || !digitsAt(text, 17, 2))
        return false;
    local.clear();
    tm utc{};
    utc.tm_year = number(text, 0, 4) - 1900;
    utc.tm_mon = number(text, 5, 2) - 1;
    utc.tm_mday = number(text, 8, 2);
    utc.tm_hour = number(text, 11, 2);
    utc.tm_min = number(text, 14, 2);
    utc.tm_sec = number(text, 17, 2);
    const time_t moment = timegm(&utc);
    if (moment == static_cast<time_t>(-1)) return true;
    tm fields{};
    if (!localtime_r(&moment, &fields)) return true;
    char out[64];
    snprintf(out, sizeof out, "%.4d-%.2d-%.2d %.2d:%.2d:%.2d", fields.tm_year + 1900, fields.tm_mon + 1,
             fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
    local = out;
    return true;
}

}  // namespace zeb
