#include "link_leg.h"

#include "zeb_ipc_packet_channel.h"
#include "zeb_packet.h"
#include "zeb_parent_frame.h"
#include "zeb_parent_link.h"

#include <chrono>
#include <string>
#include <vector>

namespace {

bas::IPCPacketChannel* answering = nullptr;

// Answers every piece with a frame the size of a piece request.
void answerPiece(IPCPacket1* packet) {
    if (packet->data && answering) {
        static const std::string request = "{\"id\":1,\"offset_length\":2097152,\"offset\":0}";
        IPCPacket1 reply{};
        reply.socket = packet->socket;
        reply.taskId = packet->taskId;
        reply.commandType = packet->commandType;
        reply.data = reinterpret_cast<unsigned char*>(const_cast<char*>(request.data()));
        reply.length = request.size();
        answering->sendPacket(&reply);
    }
    bas::freePacket(packet);
}

}  // namespace

double linkLegSeconds(size_t bytes, size_t piece) {
    zparent::ParentLink link;
    if (!link.listen()) return -1;
    bas::IPCPacketChannel channel;
    channel.setPacketHandler(answerPiece);
    answering = &channel;
    if (!channel.connect(link.port()) || !link.acceptWorker(std::chrono::seconds(5))) return answering = nullptr, -1;
    const std::vector<char> data(piece, 'z');
    const std::string json = "{\"udid\":\"bench\",\"stage\":2}";
    auto start = std::chrono::steady_clock::now();
    for (size_t sent = 0; sent < bytes; sent += piece) {
        if (!link.send(zparent::encodeCommandHead(1, 703, json, piece), data.data(), piece) ||
            !link.nextFrame(std::chrono::seconds(10))) {
            answering = nullptr;
            return -1;
        }
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    channel.stop();
    answering = nullptr;
    return seconds;
}
