#include "zctl_command_runner.h"

#include <cstdio>

namespace zctl {

bool CommandRunner::run(uint32_t command, const std::string& udid, const std::optional<std::string>& tail,
                        const std::function<void(const zparent::Event&)>& onEvent) {
    zparent::CommandRun run;
    run.taskId = ++taskId_;
    run.idleTimeout = std::chrono::seconds(timeoutSeconds_);
    run.interrupted = interrupted_;
    const int64_t code = zparent::runCommand(link_, run, command, zparent::uuidJson(udid), tail, onEvent);
    if (code == 0) return true;
    fprintf(stderr, "zebrelo-ctl: command %u failed with code %lld: %s\n", command, static_cast<long long>(code),
            codeText_(code));
    return false;
}

std::string CommandRunner::change(uint32_t command, const std::string& udid, const std::string& tail, bool& ok) {
    std::string reply;
    ok = run(command, udid, tail, [&](const zparent::Event& event) {
        if (event.stage == 0 && event.frame.packetStatus == 2) reply = event.tail;
    });
    return reply;
}

}  // namespace zctl
