#include "zeb_packet.h"

#include <cstdlib>
#include <cstring>

namespace bas {

IPCPacket1* allocPacket(SocketRecord* socket) {
    auto* packet = static_cast<IPCPacket1*>(calloc(1, sizeof(IPCPacket1)));
    packet->socket = socket;
    return packet;
}

void freePacket(IPCPacket1* packet) {
    if (!packet) return;
    free(packet->data);
    free(packet);
}

template <typename T>
static void appendLittleEndian(std::string& out, T value) {
    for (size_t i = 0; i < sizeof(T); ++i) out.push_back(static_cast<char>((static_cast<uint64_t>(value) >> (8 * i)) & 0xFF));
}

void appendFrameHeader(std::string& out, uint64_t taskId, uint32_t commandType, uint16_t packetStatus,
                       uint64_t payloadLength) {
    out.append(kFrameMagic, sizeof kFrameMagic);
    out.append(reinterpret_cast<const char*>(kFrameFiller), sizeof kFrameFiller);
    appendLittleEndian(out, taskId);
    appendLittleEndian(out, commandType);
    appendLittleEndian(out, packetStatus);
    appendLittleEndian(out, payloadLength);
}

bool frameStartsWithMagic(const char* bytes, size_t length) {
    return length >= sizeof kFrameMagic && memcmp(bytes, kFrameMagic, sizeof kFrameMagic) == 0;
}

uint64_t framePayloadLength(const char* header) {
    uint64_t value = 0;
    for (size_t i = 0; i < 8; ++i)
        value |= static_cast<uint64_t>(static_cast<unsigned char>(header[kPayloadLengthOffset + i])) << (8 * i);
    return value;
}

}  // namespace bas
