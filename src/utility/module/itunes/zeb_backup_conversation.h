// Driving a backup conversation: the opening every conversation shares,
// and the loop that answers the device until it says goodbye.
#pragma once

#include "zeb_backup_session.h"
#include "zeb_sync_frames.h"

#include <functional>
#include <string>

// What a long backup operation ends with: the final event's code, and the
// text that goes under "error".
struct TaskResult {
    int32_t code = 0;
    std::string text;
};

namespace backup {

// The text of code 2, a conversation that could not go on.
inline constexpr char kTaskError[] = "Task error.";

// What a conversation whose link closed or failed ends with: 45 when the
// device has gone, else 2.
TaskResult linkEnded(const BackupSession& session);

// Reads frames until `handler` picks a message out (its kind lands in the
// session). False when the link closed or failed first, even when frames
// were dropped before: only a message picked out goes on to be answered.
bool receiveMessage(BackupSession& session, SyncMessageHandler handler);

// The final event's JSON: {"error": text}.
std::string resultInfo(const TaskResult& result);

// One message template sent as a frame; false when the body's send failed.
bool sendTemplate(AMDServiceConnectionRef connection, const std::string& text);

// The device's version message read through, the version answer, Hello,
// then `request` sent without waiting. False when a send failed.
bool openConversation(BackupSession& session, const std::string& request);

// Passes the device's figure on, in hundredths of a percent, each time it
// grows: a figure that falls or stays is not sent again.
struct ProgressStep {
    std::function<void(int64_t)> report;
    int64_t sent = 0;
    void operator()(const BackupSession& session);
};

// How the loop answers "DLMessageGetFreeDiskSpace" and "DLMessageUploadFiles".
struct BackupLoopRules {
    bool reportRealFreeSpace = true;  // false: the largest number, no look at the disk
    // Reads an upload; returns a code that ends the loop, or 0. Null: every
    // file below the session's root.
    std::function<int32_t(BackupSession&)> receiveUpload;
    // Called with hundredths of a percent each time the figure grows.
    std::function<void(int64_t)> progress;
    // Looked at before every read; true ends the loop as cancelled.
    std::function<bool()> cancelled;
};

// Answers the device until the conversation ends. `clean` is set when the
// backup folder is to be removed.
TaskResult runBackupLoop(BackupSession& session, const BackupLoopRules& rules, bool& clean);

// The raw refusal of a download, ahead of the multi status.
void sendDownloadRefusal(AMDServiceConnectionRef connection, const std::string& path);

// A template with its one "%s" filled (escaped for XML).
std::string fillText(const char* text, const std::string& value);

}  // namespace backup
