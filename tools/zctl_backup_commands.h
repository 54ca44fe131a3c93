// zebrelo-ctl's backup subcommands: backup, backups, encryption, password,
// fmip.
#pragma once

#include "zeb_parent_link.h"

#include <atomic>
#include <string>
#include <vector>

namespace zctl {

struct BackupOptions {
    std::vector<std::string> words;  // the verb and its arguments
    int timeoutSeconds;
    bool json;
    const std::atomic<bool>* interrupted;
};

bool isBackupVerb(const std::string& verb);
// The process's exit status: 0 when the command succeeded.
int runBackupVerb(zparent::ParentLink& link, const std::string& verb, const BackupOptions& options);

}  // namespace zctl
