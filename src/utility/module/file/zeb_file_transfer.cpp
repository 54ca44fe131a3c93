#include "zeb_file_transfer.h"

#include "zeb_afc_piece_store.h"
#include "zeb_thread_pool.h"

namespace zeb {

FileTransfer& transferOf(DhTask& task) {
    if (!task.owned) task.owned = std::make_shared<FileTransfer>();
    return *static_cast<FileTransfer*>(task.owned.get());
}

void releaseTransfer(void* task) {
    auto* owner = static_cast<DhTask*>(task);
    if (!owner || !owner->owned) return;
    // Called under the task table's lock. The last share of a transfer
    // closes its files and may end the device's session, which waits for a
    // silent device's time-out: that happens on the pool, so that the
    // cancel answers at once and the device's other commands go on.
    auto dropped = std::make_shared<FileTransfer>(takeTransfer(*owner));
    BASThreadPool::instance()->addTask([dropped] {
        dropped->filePacket.reset();
        dropped->connection.reset();
    });
}

std::shared_ptr<AfcPieceStore> openPieceStore(ZEBDevice& device) {
    int32_t error = 0;
    ServicePtr service = StartService(device.handle, error, "com.apple.afc", nullptr, true);
    if (!service || !service->afc) return nullptr;
    return std::make_shared<AfcPieceStore>(std::move(service));
}

}  // namespace zeb

#include "zeb_client.h"

namespace zeb {

FileTransfer takeTransfer(DhTask& task) {
    FileTransfer taken;
    if (!task.owned) return taken;
    FileTransfer& transfer = transferOf(task);
    taken.filePacket = std::move(transfer.filePacket);
    taken.connection = std::move(transfer.connection);
    return taken;
}

bool beginTransferPacket(CommandContext& context) {
    FileTransfer dropped;  // released after the lock
    TaskTable& table = context.device->taskTable;
    std::lock_guard<std::mutex> hold(table.lock);
    DhTask* task = context.task;
    if (!task) return false;
    if (task->state == kTaskCancelled) {
        if (task->cancelAction) {
            auto action = task->cancelAction;
            task->cancelAction = nullptr;
            action(task->cancelData);
        }
        return false;
    }
    if (context.packet->packetStatus == 1) {
        // The parent abandons the transfer: nothing of it is kept open.
        dropped = takeTransfer(*task);
        return false;
    }
    return true;
}

void sendTransferEvent(const CommandContext& context, int32_t stage, int32_t type, uint16_t packetStatus,
                       const char* info, const void* tail, size_t tailLength) {
    EventEnvelope envelope;
    envelope.version = 1;
    envelope.stage = stage;
    envelope.code = 0;
    envelope.uuid = context.device->udid.empty() ? context.uuid.c_str() : context.device->udid.c_str();
    envelope.type = type;
    envelope.info = info;
    envelope.tail = tail;
    envelope.tailLength = tailLength;
    IPCPacket1 frame{};
    frame.taskId = context.packet->taskId;
    frame.commandType = context.packet->commandType;
    frame.packetStatus = packetStatus;
    ZEBClient::instance()->sendEvent(envelope, &frame);
}

bool endTransferIfLinkBroke(CommandContext& context, std::shared_ptr<FileHeader> filePacket, const char* info) {
    auto store = std::dynamic_pointer_cast<AfcPieceStore>(filePacket->connection);
    if (!store || !store->linkBroken()) return false;
    FileTransfer dropped;
    {
        std::lock_guard<std::mutex> hold(context.device->taskTable.lock);
        if (transferOf(*context.task).filePacket == filePacket) dropped = takeTransfer(*context.task);
    }
    // The last shares go before the parent hears: the broken service, and
    // with it the session on the link that broke, are gone when its next
    // command comes.
    store.reset();
    filePacket.reset();
    dropped = FileTransfer();
    sendTransferEvent(context, 2, 0, kStatusTransferFailed, info, nullptr, 0);
    return true;
}

int64_t transferStage(const CommandContext& context) {
    auto stage = context.json.FindMember("stage");
    if (stage == context.json.MemberEnd() || !stage->value.IsInt64()) return 0;
    return stage->value.GetInt64();
}

std::shared_ptr<FilePieceStore> claimTransferConnection(CommandContext& context) {
    TaskTable& table = context.device->taskTable;
    DhTask* task = context.task;
    std::shared_ptr<FilePieceStore> connection;
    {
        std::lock_guard<std::mutex> hold(table.lock);
        if (task->state == kTaskCancelled) return nullptr;
        task->commandType = context.packet->commandType;
        task->udid = context.uuid;
        connection = transferOf(*task).connection;
    }
    if (!connection) connection = openPieceStore(*context.device);
    return connection;
}

}  // namespace zeb
