#pragma once

#include <sqlite3.h>

namespace zeb {

// Registers regexp(pattern, text) on a connection: 1 when the whole text
// matches, 0 when not; an error for bad arguments or a bad pattern.
int registerRegexp(sqlite3* db);

}  // namespace zeb
