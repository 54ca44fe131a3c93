// The parent's side of putting a backup back and of wiping a device:
// restore (1601), erase (1700) and the free-space fill (1701).
#pragma once

#include "zeb_parent_commands.h"

#include <functional>
#include <string>
#include <vector>

namespace zparent {

struct StagedProgress {
    int32_t stage = 0;
    int64_t value = 0;
};

struct LongCommandOutcome {
    int64_t code = -1;  // the final event's code; -1 when none came
    std::string error;  // its "error" text
    std::vector<StagedProgress> progress;  // as they came
};

using ProgressListener = std::function<void(const StagedProgress&)>;

struct RestoreSource {
    std::string folder;    // the backup's own folder (".../<source udid>/")
    std::string sourceId;  // the device that made it
    std::string password;  // passed on only when the backup is encrypted
};

// A restore counts as done when the device said goodbye (45) or answered
// with success (0).
bool restoreCompleted(int64_t code);

LongCommandOutcome runRestore(ParentLink& link, const CommandRun& run, const std::string& udid,
                              const RestoreSource& source, const ProgressListener& onProgress = {});

// Erase: media folders emptied, user apps removed, then `source` restored.
LongCommandOutcome runErase(ParentLink& link, const CommandRun& run, const std::string& udid,
                            const RestoreSource& source, const ProgressListener& onProgress = {});

// `level` passes of zeros over the free space (the worker runs at most two).
// With `run.interrupted` set the worker is asked to cancel, and the wait
// goes on for its answer (6).
LongCommandOutcome runFillFreeSpace(ParentLink& link, const CommandRun& run, const std::string& udid, int64_t level,
                                    const ProgressListener& onProgress = {});

}  // namespace zparent
