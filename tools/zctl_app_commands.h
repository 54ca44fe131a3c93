// zebrelo-ctl's app subcommands: apps, icons, install, uninstall, archive.
#pragma once

#include "zeb_parent_link.h"

#include <atomic>
#include <string>
#include <vector>

namespace zctl {

struct AppOptions {
    std::vector<std::string> words;  // the verb and its arguments
    int timeoutSeconds;
    bool json;
    const std::atomic<bool>* interrupted;
};

bool isAppVerb(const std::string& verb);
// The process's exit status: 0 when the command and every item succeeded.
int runAppVerb(zparent::ParentLink& link, const std::string& verb, const AppOptions& options);

// The final report of an app command. Items of 505 and 506 that the device
// refuses end with a stage 0 event of packetStatus 6 and code 0, which is
// not a report; a report of packetStatus 6 always has a non-zero code.
bool isAppReport(const zparent::Event& event);

}  // namespace zctl
