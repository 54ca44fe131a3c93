#include "zeb_logging.h"

#include <glog/logging.h>

#include <atomic>

namespace zeb {

namespace {
std::atomic<bool> started{false};
std::atomic<bool> stopped{false};
}  // namespace

void startLogging(const std::filesystem::path& logDir, bool alsoToStderr) {
    google::InitGoogleLogging("zebrelo");
    FLAGS_log_dir = logDir.string();
    FLAGS_max_log_size = 20;
    FLAGS_logbufsecs = 0;
    if (alsoToStderr) FLAGS_alsologtostderr = true;
    started = true;
}

void stopLogging() {
    if (!started.load() || stopped.exchange(true)) return;
    google::ShutdownGoogleLogging();
}

bool logging() { return started.load() && !stopped.load(); }

}  // namespace zeb
