// Runs the commands of one zebrelo-ctl verb on the link, one task id after
// the other, and says on stderr why one failed.
#pragma once

#include "zeb_parent_commands.h"

#include <atomic>
#include <functional>
#include <optional>
#include <string>

namespace zctl {

class CommandRunner {
public:
    using CodeText = const char* (*)(int64_t code);

    CommandRunner(zparent::ParentLink& link, int timeoutSeconds, const std::atomic<bool>* interrupted,
                  CodeText codeText)
        : link_(link), timeoutSeconds_(timeoutSeconds), interrupted_(interrupted), codeText_(codeText) {}

    // Runs one command on the device; its events go to `onEvent`. True on
    // code 0.
    bool run(uint32_t command, const std::string& udid, const std::optional<std::string>& tail,
             const std::function<void(const zparent::Event&)>& onEvent);

    // A change command: the tail of its one reply event (empty when none
    // came) and whether it succeeded.
    std::string change(uint32_t command, const std::string& udid, const std::string& tail, bool& ok);

private:
    zparent::ParentLink& link_;
    int timeoutSeconds_;
    const std::atomic<bool>* interrupted_;
    CodeText codeText_;
    uint64_t taskId_ = 0;
};

}  // namespace zctl
