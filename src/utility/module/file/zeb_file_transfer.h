// The state of one 702 or 703 transfer between its packets. It lives in the
// command's DhTask, is only touched under the device's task lock, and is
// dropped by releaseTransfer, which is also the task's cancel action.
#pragma once

#include "zeb_afc_piece_store.h"
#include "zeb_command_context.h"
#include "zeb_device.h"
#include "zeb_file_piece.h"
#include "zeb_task_table.h"

#include <memory>

struct FileTransfer {
    std::shared_ptr<FilePieceStore> connection;
    std::shared_ptr<FileHeader> filePacket;  // a FilePacketReader or FilePacketWriter
};

namespace zeb {

// The task's transfer record, made on first use. Call under the task lock.
FileTransfer& transferOf(DhTask& task);
// Takes the transfer out of the task and drops the file packet, then the
// connection, on the pool. A writer whose last share goes closes, so that
// an unfinished upload leaves no file behind.
void releaseTransfer(void* task);
// The device's shared AFC service as a piece store; null when it won't start.
std::shared_ptr<AfcPieceStore> openPieceStore(ZEBDevice& device);
// Claims the command's task for a transfer and gives the task's connection,
// opening one when it has none yet; null when the task stands cancelled or
// AFC does not start.
std::shared_ptr<FilePieceStore> claimTransferConnection(CommandContext& context);

}  // namespace zeb

namespace zeb {

// Moves the transfer out of the task (call under the task lock); dropping
// the result outside the lock keeps device calls out of it.
FileTransfer takeTransfer(DhTask& task);

// The first steps of every 702 and 703 packet, under the task lock: a
// cancelled task runs its cancel action and stops; packetStatus 1 abandons
// the transfer. True when the packet is to be served.
bool beginTransferPacket(CommandContext& context);

// The packetStatus of a transfer that failed: a 702 whose file would not
// open, or a piece of either direction whose device link broke.
inline constexpr uint16_t kStatusTransferFailed = 6;

// After a piece failed: when the device link under the transfer broke, the
// transfer is over. It is taken out of the task and let go with the shares
// passed in (so that the device's next commands find no broken service
// held), and the parent hears at once: stage 2 with kStatusTransferFailed,
// `info`, and no bytes. False, with nothing done, when the link is whole:
// that failure stays silent. The caller holds no other share of the store.
bool endTransferIfLinkBroke(CommandContext& context, std::shared_ptr<FileHeader> filePacket, const char* info);

// One conversation event: version 1, code 0, the device's UDID, the
// packet's taskId and commandType.
void sendTransferEvent(const CommandContext& context, int32_t stage, int32_t type, uint16_t packetStatus,
                       const char* info, const void* tail, size_t tailLength);

// The integer `stage` of the command's JSON, or 0.
int64_t transferStage(const CommandContext& context);

}  // namespace zeb
