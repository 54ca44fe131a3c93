// The parent's side of the file conversations: pull a device file piece by
// piece (resuming into a partial local file), push a local file answering
// the worker's piece requests, copy device items (701) and list a device
// folder (704).
#pragma once

#include "zeb_parent_link.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace zparent {

struct TransferOptions {
    // Longest silence before the parent gives up on a piece.
    std::chrono::milliseconds pieceTimeout{30000};
    // Set (by a signal handler) to stop: the transfer is cancelled on the
    // worker with command 600.
    const std::atomic<bool>* interrupted = nullptr;
    // Pull: continue from "<local>.part" and its ".part.json" record.
    bool resume = false;
    // Called after each piece with the bytes done and the total.
    std::function<void(int64_t done, int64_t total)> progress;
};

struct TransferResult {
    bool ok = false;
    std::string error;        // why not, for a person
    bool cancelled = false;   // stopped by `interrupted`
    int64_t size = 0;         // the file's size
    int64_t transferred = 0;  // bytes that moved in this run
    int64_t skipped = 0;      // bytes a resume did not need to move
};

// The error of a pull or push the worker ended because the device's link
// broke under a piece (packetStatus 6 on the piece's answer).
inline constexpr char kLinkBroke[] = "the device's link broke";

// The partial file of a pull and its record of the pieces it holds.
std::filesystem::path partialPath(const std::filesystem::path& local);
std::filesystem::path partialRecordPath(const std::filesystem::path& local);

TransferResult pullFile(ParentLink& link, uint64_t taskId, const std::string& udid, const std::string& devicePath,
                        const std::filesystem::path& local, const TransferOptions& options);

// Pushes into `deviceFolder` under the local file's name; with `media` 0
// the worker puts it under /Books/ instead.
struct PushTarget {
    std::string folder;
    std::string name;  // empty: the local file's name
    int media = -1;    // -1: use folder
};
TransferResult pushFile(ParentLink& link, uint64_t taskId, const std::string& udid,
                        const std::filesystem::path& local, const PushTarget& target, const TransferOptions& options);

struct CopyRequest {
    std::string displayName;
    std::string devicePath;
    std::string localFolder;
};
struct CopyResult {
    int64_t code = -1;                // the report's code; -1 without one
    std::vector<std::string> copied;  // local paths, in the order they came
};
CopyResult copyItems(ParentLink& link, uint64_t taskId, const std::string& udid,
                     const std::vector<CopyRequest>& items, std::chrono::milliseconds timeout);

struct FolderEntry {
    std::string name;
    std::string type;  // file, folder, link, other
    int64_t size = 0;
    int64_t mtime = 0;
    std::string target;
};
struct FolderListing {
    int64_t code = -1;
    std::vector<FolderEntry> entries;
};
FolderListing listFolder(ParentLink& link, uint64_t taskId, const std::string& udid, const std::string& path,
                         std::chrono::milliseconds timeout);

// Asks the worker to cancel a task and waits for the answer.
bool cancelTask(ParentLink& link, uint64_t cancelTaskId, const std::string& udid, uint64_t taskId,
                std::chrono::milliseconds timeout);

}  // namespace zparent
