// The command table: command number -> the module that serves it.
#pragma once

#include <cstdint>

class ZEBModule;

namespace zeb {

// Builds the table once; modules join it as they are built.
void buildCommandTable();
// Null for an unknown number (and before the table is built). Never inserts.
ZEBModule* findModule(uint32_t commandType);

}  // namespace zeb
