// zebrelo-ctl's restore and wipe subcommands: restore, erase, wipe-free.
#pragma once

#include "zctl_backup_commands.h"

namespace zctl {

bool isRestoreVerb(const std::string& verb);
// The process's exit status: 0 when the command succeeded, 130 when a
// wipe was cancelled.
int runRestoreVerb(zparent::ParentLink& link, const std::string& verb, const BackupOptions& options);

}  // namespace zctl
