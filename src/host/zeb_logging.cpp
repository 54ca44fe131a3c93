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

void silenceLogging() {
    // Without a log, glog would print to stderr; a parent that asked for
    // no log gets none, on its console or anywhere else.
    FLAGS_minloglevel = google::GLOG_FATAL + 1;
}

void stopLogging() {
    if (!started.load() || stopped.exchange(true)) return;
    google::ShutdownGoogleLogging();
}

bool logging() { return started.load() && !stopped.load(); }

}  // namespace zeb
