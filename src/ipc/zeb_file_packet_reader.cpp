#include "zeb_file_packet_reader.h"

#include <algorithm>

FilePacketReader::~FilePacketReader() {
    if (file && connection) connection->close(file);
}

bool FilePacketReader::open(const FileHeader& templ) {
    if (!templ.connection) return false;
    int64_t found = 0;
    if (!templ.connection->fileSize(templ.path, found) || found <= 0 || templ.piece_size <= 0) return false;
    FileStoreRef opened = templ.connection->openRead(templ.path);
    if (!opened) return false;
    copyFrom(templ);
    size = found;
    file = opened;
    md5 = "a";  // no digest is taken; the parent doesn't compare it
    pieces = zeb::buildPieces(size, piece_size);
    return true;
}

bool FilePacketReader::read(FilePacket& packet) {
    packet.result_size = 0;
    if (packet.id == 0 || packet.offset_length <= 0) return false;
    // Offsets outside the file are the parent's mistake; nothing is read.
    if (packet.offset < 0 || packet.offset >= size || !connection || !file || !packet.buffer) return false;
    uint64_t count = std::min<uint64_t>(static_cast<uint64_t>(packet.offset_length), packet.buffer_size);
    count = std::min<uint64_t>(count, static_cast<uint64_t>(size - packet.offset));
    count = std::min<uint64_t>(count, UINT32_MAX);
    if (!connection->seek(file, packet.offset)) return false;
    packet.result_size = connection->read(file, packet.buffer, static_cast<uint32_t>(count));
    return packet.result_size != 0;
}
