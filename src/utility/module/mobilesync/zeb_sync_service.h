// The service every sync module talks to, and the count its lists carry.
#pragma once

#include "zeb_command_context.h"
#include "zeb_device.h"
#include "zeb_sync_session.h"

#include <cstddef>
#include <cstdint>

inline constexpr int64_t kCodeSyncServiceFailed = 13;

namespace zeb {

// "com.apple.mobilesync" on the command's device, or null. The command
// holds it until its final report has gone out: the dialogue runs, the
// parent hears the outcome, then the service is let go.
ServicePtr StartSyncService(CommandContext& context);

// The service started and every record of the class read through `reader`
// (its handler, context and modes set), then the session finished. The
// log names the query by `label`. The code the list ends with:
// kCodeSyncServiceFailed when the service would not start (nothing is to
// be sent then), kCodeConversationBroke when the device went away or the
// link broke before the list's end (the reader keeps what arrived, and the
// parent gets that, then the code), else kCodeSuccess.
int64_t ReadAllSyncRecords(CommandContext& context, const char* label, const SyncTexts& texts,
                           const SyncRecordReader& reader);

// The service started and a change session walked up to where the device
// takes changes. False when the service would not start.
bool BeginSyncChange(CommandContext& context, const SyncTexts& texts, const SyncWriteWaits& waits,
                     SyncSession& session);

// The count a list of the class goes out with: the number of records, or
// -1 when there are none and the device keeps the class in an account (the
// parent then tells the user the data lives in the cloud).
int64_t syncListCount(const ZEBDevice& device, const char* accountName, size_t records);

}  // namespace zeb
