// bas::IPCPacketChannel: kCommand frames over an IPCChannel. Reads are
// reassembled on the receive thread; whole packets wait in a queue that a
// thread of the channel hands, one at a time and in order, to the handler.
#pragma once

#include "zeb_frame_reassembler.h"
#include "zeb_ipc_channel.h"
#include "zeb_packet.h"

#include <deque>
#include <map>

namespace bas {

using PacketHandler = void (*)(IPCPacket1*);

class IPCPacketChannel : public IPCChannel {
public:
    IPCPacketChannel();
    ~IPCPacketChannel() override;

    // Must be set before the first packet can arrive. The handler owns the
    // packet it is given.
    void setPacketHandler(PacketHandler handler) { packetHandler = handler; }

    void onReceive(SocketRecord* socket, const char* data, size_t length) override;

    // One send of header and payload (packet->length bytes at packet->data).
    bool sendPacket(const IPCPacket1* packet);
    // packet->length carries two numbers: the text's length in its low 32
    // bits (of which only 16 are used) and the tail's length in its high 32.
    // The frame with the text and the tail's bytes, in one write.
    bool sendTextPacket(const IPCPacket1* packet, const void* tail = nullptr);

private:
    void packetLoop();
    void queuePacket(IPCPacket1* packet);

    std::mutex packetLock;
    std::condition_variable packetsAvailable;
    std::deque<IPCPacket1*> packets;
    PacketHandler packetHandler = nullptr;
    std::map<SocketRecord*, FrameReassembler> buffers;  // receive thread only
    std::thread packetThread;
};

// Builds a packet from one reassembled frame (header and payload).
IPCPacket1* packetFromFrame(const char* frame, size_t size, SocketRecord* socket);

}  // namespace bas
