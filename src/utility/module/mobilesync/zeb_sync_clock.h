// Times of a mobilesync session: the computer anchor of the start message,
// and the device's UTC texts as the parent reads them, in local time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The local clock as the start message takes it. `bias` is minutes west of
// Greenwich (UTC+8 is -480).
struct SyncClock {
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, milliseconds = 0;
    int32_t bias = 0;
};

namespace zeb {

SyncClock syncClockNow();

// The start template filled from the clock. The device takes the anchor as
// an opaque text, so its fields stay where the parent's older tools put
// them: milliseconds in the minutes' place, and the zone's whole hours as
// an unsigned number behind a literal "+" (UTC-5 prints 4294967291).
std::string syncStartText(const char* startTemplate, const SyncClock& clock);

// True when `text` as a whole is the device's "YYYY-MM-DDTHH:MM:SSZ";
// `local` is then the same moment in the machine's zone as
// "YYYY-MM-DD HH:MM:SS", or empty when the conversion fails.
bool deviceDateToLocal(std::string_view text, std::string& local);

}  // namespace zeb
