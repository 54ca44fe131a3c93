// The one line of a benchmark that bench/run.sh gathers into its table:
// "ROW<TAB>path<TAB>worker<TAB>reference<TAB>ratio<TAB>aim<TAB>met".
#pragma once

#include <cstdio>
#include <string>

// `ratio` is worker against reference as the path reads it (time or
// throughput); the aim is met when it is at most (`atMost`) or at least
// the aim.
inline void benchRow(const std::string& path, const std::string& worker, const std::string& reference, double ratio,
                     bool atMost, double aim) {
    const bool met = atMost ? ratio <= aim : ratio >= aim;
    std::printf("ROW\t%s\t%s\t%s\t%.2f\t%s %.2f\t%s\n", path.c_str(), worker.c_str(), reference.c_str(), ratio,
                atMost ? "<=" : ">=", aim, met ? "yes" : "NO");
    std::fflush(stdout);
}

// "1.23 s", "456.7 MB/s": the figures of a row.
inline std::string benchFigure(double value, const char* unit) {
    char text[48];
    std::snprintf(text, sizeof text, "%.2f %s", value, unit);
    return text;
}
