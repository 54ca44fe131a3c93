// The kCommand frame and the record of one received packet.
#pragma once

#include "zeb_socket_record.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace bas {

inline constexpr char kFrameMagic[8] = {'k', 'C', 'o', 'm', 'm', 'a', 'n', 'd'};
inline constexpr unsigned char kFrameFiller[6] = {1, 2, 3, 4, 5, 6};
inline constexpr size_t kFrameHeaderSize = 36;
inline constexpr size_t kTaskIdOffset = 14;
inline constexpr size_t kCommandTypeOffset = 22;
inline constexpr size_t kPacketStatusOffset = 26;
inline constexpr size_t kPayloadLengthOffset = 28;

}  // namespace bas

// A received packet; also what a sender fills in. Allocated with malloc:
// whoever finishes with it frees data, then the record (freePacket).
struct IPCPacket1 {
    uint64_t taskId;
    uint16_t packetStatus;
    uint32_t commandType;
    unsigned char* data;  // payload plus one NUL behind it; null when empty
    uint64_t length;
    bas::SocketRecord* socket;
};

namespace bas {

IPCPacket1* allocPacket(SocketRecord* socket);
void freePacket(IPCPacket1* packet);
// True for the record that announces a socket's end.
inline bool isClosingPacket(const IPCPacket1* packet) {
    return packet->commandType == 0 && packet->length == 0 && packet->data == nullptr && packet->taskId == 0;
}

// Appends the 36-byte header to out.
void appendFrameHeader(std::string& out, uint64_t taskId, uint32_t commandType, uint16_t packetStatus,
                       uint64_t payloadLength);
bool frameStartsWithMagic(const char* bytes, size_t length);
uint64_t framePayloadLength(const char* header);

}  // namespace bas
