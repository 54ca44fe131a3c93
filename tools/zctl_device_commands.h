// zebrelo-ctl's device subcommands: devices, info, rename, cancel.
#pragma once

#include "zeb_parent_link.h"

#include <atomic>
#include <string>
#include <vector>

namespace zctl {

struct DeviceOptions {
    std::vector<std::string> words;  // the verb and its arguments
    int timeoutSeconds;
    bool json;
    const std::atomic<bool>* interrupted;
};

bool isDeviceVerb(const std::string& verb);
// The process's exit status.
int runDeviceVerb(zparent::ParentLink& link, const std::string& verb, const DeviceOptions& options);

}  // namespace zctl
