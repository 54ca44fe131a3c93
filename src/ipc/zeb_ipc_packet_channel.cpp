#include "zeb_ipc_packet_channel.h"

#include <cstdlib>
#include <cstring>

namespace bas {

namespace {

template <typename T>
T readLittleEndian(const char* bytes) {
    uint64_t value = 0;
    for (size_t i = 0; i < sizeof(T); ++i) value |= static_cast<uint64_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return static_cast<T>(value);
}

}  // namespace

IPCPacket1* packetFromFrame(const char* frame, size_t size, SocketRecord* socket) {
    IPCPacket1* packet = allocPacket(socket);
    packet->taskId = readLittleEndian<uint64_t>(frame + kTaskIdOffset);
    packet->commandType = readLittleEndian<uint32_t>(frame + kCommandTypeOffset);
    packet->packetStatus = readLittleEndian<uint16_t>(frame + kPacketStatusOffset);
    packet->length = size - kFrameHeaderSize;
    if (packet->length != 0) {
        // One NUL behind the payload lets text handlers read it as a C text.
        packet->data = static_cast<unsigned char*>(malloc(packet->length + 1));
        memcpy(packet->data, frame + kFrameHeaderSize, packet->length);
        packet->data[packet->length] = 0;
    }
    return packet;
}

IPCPacketChannel::IPCPacketChannel() : packetThread([this] { packetLoop(); }) {}

IPCPacketChannel::~IPCPacketChannel() {
    stopAndJoin();
    packetsAvailable.notify_all();
    if (packetThread.joinable()) packetThread.join();
    for (IPCPacket1* packet : packets) freePacket(packet);
}

void IPCPacketChannel::queuePacket(IPCPacket1* packet) {
    {
        std::lock_guard<std::mutex> hold(packetLock);
        packets.push_back(packet);
    }
    packetsAvailable.notify_one();
}

void IPCPacketChannel::onReceive(SocketRecord* socket, const char* data, size_t length) {
    if (data == nullptr) {
        queuePacket(allocPacket(socket));
        return;
    }
    buffers[socket].feed(data, length, [&](const char* frame, size_t size) {
        queuePacket(packetFromFrame(frame, size, socket));
    });
}

void IPCPacketChannel::packetLoop() {
    for (;;) {
        IPCPacket1* packet = nullptr;
        {
            std::unique_lock<std::mutex> hold(packetLock);
            packetsAvailable.wait(hold, [this] { return !packets.empty() || stopping(); });
            if (stopping()) return;
            packet = packets.front();
            packets.pop_front();
        }
        packetHandler(packet);
    }
}

bool IPCPacketChannel::sendPacket(const IPCPacket1* packet) {
    std::string frame;
    frame.reserve(kFrameHeaderSize + packet->length);
    appendFrameHeader(frame, packet->taskId, packet->commandType, packet->packetStatus, packet->length);
    if (packet->length != 0) frame.append(reinterpret_cast<const char*>(packet->data), packet->length);
    return send(packet->socket, frame.data(), frame.size());
}

bool IPCPacketChannel::sendTextPacket(const IPCPacket1* packet, const void* tail) {
    // Only 16 bits of the text's length travel: bulk data belongs in the tail.
    uint64_t textLength = packet->length & 0xFFFF;
    uint64_t tailLength = packet->length >> 32;
    std::string frame;
    frame.reserve(kFrameHeaderSize + textLength);
    appendFrameHeader(frame, packet->taskId, packet->commandType, packet->packetStatus, tailLength + textLength);
    frame.append(reinterpret_cast<const char*>(packet->data), textLength);
    return send(packet->socket, frame.data(), frame.size(), tail, tail ? tailLength : 0);
}

}  // namespace bas
