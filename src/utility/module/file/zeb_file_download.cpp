// Command 702: a device file goes to the parent piece by piece. The parent
// opens (stage 1), asks for one piece at a time (stage 2) and finishes
// (stage 3); each piece leaves as a raw tail.
#include "zeb_afc.h"
#include "zeb_file_names.h"
#include "zeb_file_packet_reader.h"
#include "zeb_file_transfer.h"
#include "zeb_json_parse.h"
#include "zeb_module_file.h"

namespace {

constexpr uint16_t kStatusPiece = 2;

void openDownload(CommandContext& context) {
    rapidjson::Document tail;
    if (!context.readTail(tail) || !tail.IsObject()) return;  // 8: silence
    std::string path;
    auto pathValue = tail.FindMember("path");
    if (pathValue != tail.MemberEnd() && pathValue->value.IsString()) path = pathValue->value.GetString();

    TaskTable& table = context.device->taskTable;
    DhTask* task = context.task;
    std::shared_ptr<FilePieceStore> connection = zeb::claimTransferConnection(context);
    if (!connection) return;  // cancelled, or 12: silence
    auto reader = std::make_shared<FilePacketReader>();
    {
        std::lock_guard<std::mutex> hold(table.lock);
        if (task->state == kTaskCancelled) return;
        FileTransfer& transfer = zeb::transferOf(*task);
        transfer.connection = connection;
        transfer.filePacket = reader;
        task->cancelData = task;
        task->cancelAction = zeb::releaseTransfer;
    }

    FileHeader templ;
    templ.version = "1";
    templ.path = path;
    templ.piece_size = kDownloadPieceSize;
    templ.connection = connection;
    // A path that climbs out of the media partition fails like a missing file.
    bool opened = !path.empty() && !zeb::hasParentComponent(path) && reader->open(templ);
    std::string description;
    if (opened) {
        reader->file_name = zeb::deviceBaseName(path);
        description = reader->writeDescription();
    } else {
        FileTransfer dropped;
        std::lock_guard<std::mutex> hold(table.lock);
        FileTransfer& transfer = zeb::transferOf(*task);
        if (transfer.filePacket == reader) dropped = zeb::takeTransfer(*task);
    }
    const uint16_t status = opened ? kStatusPiece : zeb::kStatusTransferFailed;
    zeb::sendTransferEvent(context, 1, 0, status, nullptr, description.data(), description.size());
}

void sendPiece(CommandContext& context) {
    std::string infoText;
    if (!context.tailText(infoText)) return;
    rapidjson::Document info;
    zeb::parseJson(info, infoText.c_str(), infoText.size());
    if (info.HasParseError()) return;  // 8: silence

    std::shared_ptr<FilePacketReader> reader;
    {
        std::lock_guard<std::mutex> hold(context.device->taskTable.lock);
        reader = std::dynamic_pointer_cast<FilePacketReader>(zeb::transferOf(*context.task).filePacket);
    }
    if (!reader || !reader->file) return;

    FilePacket packet;
    packet.readInfo(info);
    packet.connection = reader->connection;
    packet.file = reader->file;
    // The thread's one block: no allocation per piece.
    packet.buffer = zeb::threadTransferBuffer();
    packet.buffer_size = packet.buffer ? kTransferBufferSize : 0;
    if (!reader->read(packet)) {
        // A piece the device could not give is not answered, unless the
        // link broke under it.
        packet.connection.reset();
        zeb::endTransferIfLinkBroke(context, std::move(reader), infoText.c_str());
        return;
    }
    zeb::sendTransferEvent(context, 2, 1, kStatusPiece, infoText.c_str(), packet.buffer, packet.result_size);
}

void finishDownload(CommandContext& context) {
    FileTransfer dropped;
    bool hadReader = false;
    {
        std::lock_guard<std::mutex> hold(context.device->taskTable.lock);
        FileTransfer& transfer = zeb::transferOf(*context.task);
        hadReader = std::dynamic_pointer_cast<FilePacketReader>(transfer.filePacket) != nullptr;
        if (hadReader) dropped = zeb::takeTransfer(*context.task);
    }
    if (!hadReader) return;
    dropped = FileTransfer();
    zeb::sendTransferEvent(context, 3, 0, kStatusPiece, nullptr, nullptr, 0);
}

}  // namespace

void ZEBModuleFile::download(CommandContext& context) {
    if (!zeb::beginTransferPacket(context)) return;
    switch (zeb::transferStage(context)) {
        case 1: openDownload(context); break;
        case 2: sendPiece(context); break;
        case 3: finishDownload(context); break;
        default: break;
    }
}
