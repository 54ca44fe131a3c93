// glog for the worker: started only when the parent asked for a log.
#pragma once

#include <filesystem>

namespace zeb {

void startLogging(const std::filesystem::path& logDir, bool alsoToStderr);
void silenceLogging();
// Once only: the crash path and shutdown share the mark.
void stopLogging();
bool logging();

}  // namespace zeb
