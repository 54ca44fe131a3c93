// zebrelo-ctl's calendar, bookmark and note subcommands.
#pragma once

#include "zeb_parent_link.h"

#include <atomic>
#include <string>
#include <vector>

namespace zctl {

struct SyncDataOptions {
    std::vector<std::string> words;  // the verb and its arguments
    int timeoutSeconds;
    bool json;
    const std::atomic<bool>* interrupted;
};

bool isSyncDataVerb(const std::string& verb);
// The process's exit status: 0 when the device took the command.
int runSyncDataVerb(zparent::ParentLink& link, const std::string& verb, const SyncDataOptions& options);

}  // namespace zctl
