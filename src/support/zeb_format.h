// Sizes and times as the parent shows them.
#pragma once

#include <cstdint>
#include <string>

namespace zeb {

// "1023.00 B", "1.00 KB", "12.50 MB", "3.00 GB".
std::string formatSize(double bytes);
// "YYYY?MM?DD?hh?mm?ss" taken as UTC, as local "YYYY-MM-DD hh:mm:ss"; empty
// for a short text or a failure.
std::string utcTextToLocal(const char* text);
// Seconds (or, when that is out of range, nanoseconds) since 2001-01-01 UTC,
// as local "YYYY-MM-DD hh:mm:ss"; empty on failure.
std::string appleTimeToText(int64_t value);
// Text for an XML element body: & < > " ' as entities, all else as it is.
std::string escapeXmlText(const std::string& value);
// "mm:ss", or "hh:mm:ss" from one hour on; rounded to whole seconds.
std::string secondsToText(double seconds);

inline constexpr int64_t kAppleEpoch = 978307200;  // 2001-01-01 00:00:00 UTC in Unix time

}  // namespace zeb
