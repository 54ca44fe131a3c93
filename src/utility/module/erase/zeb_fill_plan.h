// The arithmetic of a free-space fill: how much each pass writes, the
// progress it shows, and the names of its files.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace erase {

inline constexpr uint32_t kFillBufferBytes = 0x800000;  // one zero buffer serves every write
inline constexpr int kWritesPerPassUnit = 64;           // pass p writes files of p x 512 MiB
inline constexpr int kPassShare = 50;                   // the progress base rises by this per pass
inline constexpr char kFillFolder[] = "/iostemp";

// written x 100 / total, capped at 100; 100 when there is nothing to fill.
int64_t fillPercent(uint64_t written, uint64_t total);

// What the parent sees: the pass's base plus the percent spread over the
// levels asked for, rounded up. A level of 3 shows 1..34 and 51..84.
int64_t fillProgress(int64_t base, int64_t percent, int64_t level);

// "/iostemp/<local YYYYmmddHHMMSS>-<counter>".
std::string fillFileName(time_t now, int64_t counter);

}  // namespace erase
