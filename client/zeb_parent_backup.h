// The parent's side of backups: run one with its progress, list the backups
// in folders, and read the final event's error text.
#pragma once

#include "zeb_parent_commands.h"

#include <rapidjson/document.h>

#include <functional>
#include <string>
#include <vector>

namespace zparent {

struct BackupOutcome {
    int64_t code = -1;        // the final event's code; -1 when none came
    std::string error;        // its "error" text
    std::string folder;       // the "BackupDir" the worker announced
    std::vector<int64_t> progress;  // hundredths of a percent, as they came
};

// Command 1600 into `folder` (empty: the worker's default backup folder).
// `onProgress` hears each figure as it comes, with the backup's folder.
BackupOutcome runBackup(ParentLink& link, const CommandRun& run, const std::string& udid, const std::string& folder,
                        const std::function<void(int64_t hundredths, const std::string& made)>& onProgress = {});

struct BackupListing {
    int64_t code = -1;
    std::vector<std::string> firstSeen;  // "Path" of each stage 0 event, in order
    rapidjson::Document records;         // "Path" -> the stage 1 record (with "Size")
    BackupListing() { records.SetObject(); }
};

// Command 1602 over the folders ("" is the default backup folder).
BackupListing listBackups(ParentLink& link, const CommandRun& run, const std::vector<std::string>& folders);

// The final event's "error" text, or empty.
std::string finalErrorText(const Event& event);

}  // namespace zparent
