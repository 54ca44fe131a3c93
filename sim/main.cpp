// zebrelo-sim: listens on a unix socket, speaks the usbmuxd protocol, and
// serves simulated devices behind it. See sim/README.md.
#include "core/control_server.h"
#include "core/device_hub.h"
#include "core/options.h"
#include "core/profile.h"
#include "core/socket_io.h"
#include "core/usbmux_server.h"
#include "zeb_version.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <system_error>
#include <thread>

namespace {

int gWakePipe[2] = {-1, -1};

void onSignal(int) {
    char c = 1;
    ssize_t ignored = write(gWakePipe[1], &c, 1);
    (void)ignored;
}

// Accepts clients on `listenFd` and hands each to `serve` on its own thread.
template <typename Serve>
void acceptLoop(int listenFd, Serve serve) {
    std::thread([listenFd, serve] {
        for (;;) {
            int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) {
                if (errno == EINTR || errno == ECONNABORTED || errno == EMFILE || errno == ENFILE) {
                    if (errno == EMFILE || errno == ENFILE) usleep(100000);
                    continue;
                }
                return;  // the listening socket was closed: shutting down
            }
            std::thread(serve, fd).detach();
        }
    }).detach();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "--version") == 0) {
        printf("zebrelo-sim %s\n", ZEBRELO_VERSION);
        return 0;
    }
    zsim::Options options;
    std::string error;
    if (!zsim::parseOptions(argc, argv, options, error)) {
        fprintf(stderr, "zebrelo-sim: %s\n%s", error.c_str(), zsim::usageText());
        return 2;
    }
    if (options.help) {
        fputs(zsim::usageText(), stdout);
        return 0;
    }
    signal(SIGPIPE, SIG_IGN);
    if (pipe2(gWakePipe, O_CLOEXEC) != 0) return 1;
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);

    zsim::DeviceHub hub(options.stateDir);
    std::vector<zsim::Profile> profiles;
    for (const auto& dir : options.profiles) {
        auto profile = zsim::loadProfile(dir, error);
        if (!profile) {
            fprintf(stderr, "zebrelo-sim: %s\n", error.c_str());
            return 2;
        }
        profiles.push_back(std::move(*profile));
    }
    if (options.profiles.empty() || options.builtin) profiles.insert(profiles.begin(), zsim::builtinProfile());
    for (const auto& profile : profiles) {
        if (!hub.attachNew(profile, error)) {
            fprintf(stderr, "zebrelo-sim: %s\n", error.c_str());
            return 1;
        }
    }

    int muxFd = zsim::listenUnix(options.socketPath, error);
    if (muxFd < 0) {
        fprintf(stderr, "zebrelo-sim: %s\n", error.c_str());
        return 1;
    }
    int controlFd = -1;
    if (!options.controlPath.empty()) {
        controlFd = zsim::listenUnix(options.controlPath, error);
        if (controlFd < 0) {
            fprintf(stderr, "zebrelo-sim: %s\n", error.c_str());
            unlink(options.socketPath.c_str());
            return 1;
        }
    }
    acceptLoop(muxFd, [&hub](int fd) { zsim::serveUsbmuxClient(fd, hub); });
    if (controlFd >= 0) acceptLoop(controlFd, [&hub](int fd) { zsim::serveControlClient(fd, hub); });

    printf("zebrelo-sim: listening on %s, %zu device(s)", options.socketPath.c_str(), profiles.size());
    if (controlFd >= 0) printf(", control on %s", options.controlPath.c_str());
    printf("\n");
    fflush(stdout);

    pollfd pfd{gWakePipe[0], POLLIN, 0};
    while (poll(&pfd, 1, -1) < 0 && errno == EINTR) {
    }

    // Leave nothing behind: socket files, and the state folder if it was ours.
    shutdown(muxFd, SHUT_RDWR);
    close(muxFd);
    unlink(options.socketPath.c_str());
    if (controlFd >= 0) {
        shutdown(controlFd, SHUT_RDWR);
        close(controlFd);
        unlink(options.controlPath.c_str());
    }
    if (options.stateIsTemporary) {
        std::error_code ec;
        std::filesystem::remove_all(options.stateDir, ec);
    }
    printf("zebrelo-sim: stopped\n");
    fflush(stdout);
    // Client threads may still be blocked on their sockets: leave without
    // running destructors under their feet.
    _exit(0);
}
