// zebrelo-ctl's file subcommands: ls, pull, push, copy.
#pragma once

#include "zeb_parent_link.h"

#include <atomic>
#include <string>
#include <vector>

namespace zctl {

struct FileOptions {
    std::vector<std::string> words;  // the verb and its arguments (--resume, --to FOLDER among them)
    int timeoutSeconds;
    bool json;
    const std::atomic<bool>* interrupted;
};

bool isFileVerb(const std::string& verb);
// The process's exit status.
int runFileVerb(zparent::ParentLink& link, const std::string& verb, const FileOptions& options);

}  // namespace zctl
