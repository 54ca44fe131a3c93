// Command 703: a file from the parent goes into the device piece by piece.
// The worker asks for one piece at a time; the file takes its final name
// only when every piece has arrived.
#include "zeb_file_names.h"
#include "zeb_file_packet_writer.h"
#include "zeb_file_transfer.h"
#include "zeb_module_file.h"

namespace {

// The whole text, a "\u0000" in it included, so that such a name is seen
// and refused rather than cut short at it.
std::string textOf(const rapidjson::Value* object, const char* key) {
    if (!object || !object->IsObject()) return {};
    auto found = object->FindMember(key);
    if (found == object->MemberEnd() || !found->value.IsString()) return {};
    return std::string(found->value.GetString(), found->value.GetStringLength());
}

void requestPiece(CommandContext& context, const FilePiece& piece) {
    std::string request = zeb::pieceRequestJson(piece);
    zeb::sendTransferEvent(context, 2, 0, context.packet->packetStatus, nullptr, request.data(), request.size());
}

void openUpload(CommandContext& context) {
    const rapidjson::Value* info = context.info();
    std::string name = textOf(info, "name");
    if (!info || !info->IsObject()) return;
    std::string folder;
    auto media = info->FindMember("media");
    if (media != info->MemberEnd() && media->value.IsInt64())
        folder = media->value.GetInt64() == 0 ? "/Books/" : "";  // otherwise the name is the whole path
    else
        folder = textOf(info, "dir");
    const std::string target = folder + name;
    // Nothing is written outside the media partition, nor without a name of
    // its own: bad input, 8, which an upload answers with silence.
    if (name.empty() || !zeb::namesDeviceFile(target)) return;

    rapidjson::Document description;
    if (!context.readTail(description) || !description.IsObject()) return;  // 8: silence

    TaskTable& table = context.device->taskTable;
    DhTask* task = context.task;
    std::shared_ptr<FilePieceStore> connection = zeb::claimTransferConnection(context);
    if (!connection) return;  // cancelled, or 12: silence
    auto writer = std::make_shared<FilePacketWriter>();
    FileTransfer replaced;
    {
        std::lock_guard<std::mutex> hold(table.lock);
        if (task->state == kTaskCancelled) return;
        replaced = zeb::takeTransfer(*task);
        FileTransfer& transfer = zeb::transferOf(*task);
        transfer.connection = connection;
        transfer.filePacket = writer;
        task->cancelData = task;
        task->cancelAction = zeb::releaseTransfer;
    }
    replaced = FileTransfer();

    FileHeader templ;
    templ.readDescription(description);
    templ.path_source = target;
    templ.path = target + ".bak";
    templ.path_project = templ.path + ".json";
    templ.file_name = name;
    templ.connection = connection;
    if (writer->open(templ) != kWriterReady) return;
    if (const FilePiece* piece = writer->firstUnfinished()) requestPiece(context, *piece);
}

void receivePiece(CommandContext& context) {
    TaskTable& table = context.device->taskTable;
    std::shared_ptr<FilePacketWriter> writer;
    {
        std::lock_guard<std::mutex> hold(table.lock);
        writer = std::dynamic_pointer_cast<FilePacketWriter>(zeb::transferOf(*context.task).filePacket);
    }
    if (!writer) return;

    const rapidjson::Value* info = context.info();
    if (!info) return;
    FilePacket packet;
    packet.readInfo(*info);
    packet.connection = writer->connection;
    packet.file = writer->file;
    // The piece's bytes stand raw behind the JSON text.
    packet.buffer = const_cast<unsigned char*>(context.tail);
    packet.buffer_size = context.tailLength;
    if (!writer->file || writer->write(packet) != kWriterReady) {
        // Not answered, and the writer stays for a resend, unless the link
        // broke under the piece.
        packet.connection.reset();
        zeb::endTransferIfLinkBroke(context, std::move(writer), nullptr);
        return;
    }
    // Fewer bytes than the piece info claims: kept, but not answered.
    if (static_cast<int64_t>(packet.buffer_size) < packet.offset_length) return;
    {
        // A cancel during the piece: the last share, dropped here, removes the files.
        std::lock_guard<std::mutex> hold(table.lock);
        if (context.task->state == kTaskCancelled) return;
    }

    if (const FilePiece* piece = writer->firstUnfinished()) {
        requestPiece(context, *piece);
        return;
    }
    FileTransfer done;
    {
        std::lock_guard<std::mutex> hold(table.lock);
        if (zeb::transferOf(*context.task).filePacket == writer) done = zeb::takeTransfer(*context.task);
    }
    // The file has its final name before the parent hears of the end.
    writer->close();
    zeb::sendTransferEvent(context, 3, 0, context.packet->packetStatus, nullptr, nullptr, 0);
}

}  // namespace

void ZEBModuleFile::upload(CommandContext& context) {
    if (!zeb::beginTransferPacket(context)) return;
    switch (zeb::transferStage(context)) {
        case 1: openUpload(context); break;
        case 2: receivePiece(context); break;
        default: break;
    }
}
