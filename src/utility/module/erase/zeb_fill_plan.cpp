#include "zeb_fill_plan.h"

#include <cmath>

namespace erase {

namespace {
constexpr time_t kLatestTime = 32535194399;  // the end of year 3000
}

int64_t fillPercent(uint64_t written, uint64_t total) {
    if (total == 0) return 100;
    // In long double: written x 100 must not wrap for a partition near 2^64.
    const long double percent = static_cast<long double>(written) * 100.0L / static_cast<long double>(total);
    return percent >= 100.0L ? 100 : static_cast<int64_t>(percent);
}

int64_t fillProgress(int64_t base, int64_t percent, int64_t level) {
    if (level <= 0) return base + percent;
    return base + static_cast<int64_t>(std::ceil(static_cast<double>(percent) / static_cast<double>(level)));
}

std::string fillFileName(time_t now, int64_t counter) {
    if (now < 0 || now > kLatestTime) now = 0;
    tm local{};
    localtime_r(&now, &local);
    char stamp[20] = {0};
    strftime(stamp, sizeof stamp, "%Y%m%d%H%M%S", &local);
    return std::string(kFillFolder) + "/" + stamp + "-" + std::to_string(counter);
}

}  // namespace erase
