// The worker's entry: settings, log folder, logging, the parent watcher,
// start-up, then the main thread waits until the parent has gone.
#include "zeb_logging.h"
#include "zeb_parent_watcher.h"
#include "zeb_quit.h"
#include "zeb_settings.h"
#include "zeb_startup.h"
#include "zeb_version.h"

#include <glog/logging.h>

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    // The parent's arguments are positional and start with a port, so this
    // can't be mistaken for one of them.
    if (argc == 2 && strcmp(argv[1], "--version") == 0) {
        printf("zebrelo %s\n", ZEBRELO_VERSION);
        return 0;
    }
    std::vector<std::string> args(argv + 1, argv + argc);
    zeb::setSettings(zeb::parseSettings(args));
    const zeb::Settings& settings = zeb::settings();

    std::error_code error;
    std::filesystem::create_directories(settings.logDir, error);

    if (settings.logEnabled) {
        zeb::startLogging(settings.logDir, settings.consoleEnabled);
        LOG(INFO) << "zebrelo " << settings.productVersion << " starting: parent port " << settings.parentPort
                  << ", parent pid " << settings.parentPid << ", run mode " << settings.runMode;
    } else {
        zeb::silenceLogging();
    }
    // Without the console flag the developer's prints go nowhere.
    if (!settings.consoleEnabled) (void)freopen("/dev/null", "w", stdout);

    // A parent that vanishes mid-send must not kill us with SIGPIPE.
    signal(SIGPIPE, SIG_IGN);

    zeb::startParentWatcher(settings.parentPid);
    zeb::startUp();
    zeb::waitForQuit();
    zeb::shutDown();
    // The pool, the channels and the watcher are never stopped: the process
    // ends around them, without running destructors under their feet.
    fflush(nullptr);
    _exit(0);
}
