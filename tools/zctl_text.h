// Texts zebrelo-ctl shows a person.
#pragma once

#include <string>

namespace zctl {

// "512 B", "1.5 KiB", "12.0 MiB" ...
std::string sizeText(double bytes);
// "mm:ss" of a number of seconds, "--:--" when unknown (negative).
std::string clockText(double seconds);

}  // namespace zctl
