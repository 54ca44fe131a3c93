// zebrelo-ctl's contact subcommands: contacts (list, add, remove) and
// groups (list, add, rename, members, remove).
#pragma once

#include "zeb_parent_link.h"

#include <atomic>
#include <string>
#include <vector>

namespace zctl {

struct ContactOptions {
    std::vector<std::string> words;  // the verb and its arguments
    int timeoutSeconds;
    bool json;
    const std::atomic<bool>* interrupted;
};

bool isContactVerb(const std::string& verb);
// The process's exit status: 0 when the device took the command.
int runContactVerb(zparent::ParentLink& link, const std::string& verb, const ContactOptions& options);

}  // namespace zctl
