#include "zeb_file_packet_reader.h"

#include <algorithm>

FilePacketReader::~FilePacketReader() {
    finishReadAhead();
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

unsigned char* FilePacketReader::ownBuffer(int which, size_t length) {
    // Made once per transfer and never again: the piece being sent may lie
    // in one of them. A piece larger than the first is just not read ahead.
    if (bufferSize_ == 0) {
        bufferSize_ = std::max<size_t>(length, piece_size > 0 ? static_cast<size_t>(piece_size) : 0);
        buffers_[0].reset(new unsigned char[bufferSize_]);
        buffers_[1].reset(new unsigned char[bufferSize_]);
    }
    return length <= bufferSize_ ? buffers_[which].get() : nullptr;
}

void FilePacketReader::finishReadAhead() {
    if (ahead_.reader.joinable()) ahead_.reader.join();
}

void FilePacketReader::startReadAhead(int64_t offset, uint32_t length) {
    unsigned char* into = ownBuffer(ahead_.buffer ^ 1, length);
    if (!into) return;
    ahead_.offset = offset;
    ahead_.length = length;
    ahead_.got = 0;
    ahead_.buffer ^= 1;
    ahead_.reader = std::thread([this, offset, length, into] {
        if (connection->seek(file, offset)) ahead_.got = connection->read(file, into, length);
    });
}

bool FilePacketReader::read(FilePacket& packet) {
    packet.result_size = 0;
    if (packet.id == 0 || packet.offset_length <= 0) return false;
    // Offsets outside the file are the parent's mistake; nothing is read.
    if (packet.offset < 0 || packet.offset >= size || !connection || !file || !packet.buffer) return false;
    uint64_t count = std::min<uint64_t>(static_cast<uint64_t>(packet.offset_length), packet.buffer_size);
    count = std::min<uint64_t>(count, static_cast<uint64_t>(size - packet.offset));
    count = std::min<uint64_t>(count, UINT32_MAX);
    finishReadAhead();
    if (ahead_.offset == packet.offset && ahead_.length == count && ahead_.got == count) {
        packet.buffer = buffers_[ahead_.buffer].get();
        packet.result_size = ahead_.got;
    } else {
        if (!connection->seek(file, packet.offset)) return false;
        packet.result_size = connection->read(file, packet.buffer, static_cast<uint32_t>(count));
    }
    ahead_.offset = -1;
    if (packet.result_size == 0) return false;
    // The parent asks for the pieces in the order of their keys as text
    // ("1", "10", "100", ..., "2"); the one it will ask for next is read
    // meanwhile. A piece outside the table is followed by the bytes after it.
    int64_t next = packet.offset + static_cast<int64_t>(packet.result_size);
    uint64_t nextLength = count;
    auto asked = pieces.find(zeb::pieceKey(packet.id));
    if (asked != pieces.end() && asked->second.offset == packet.offset) {
        auto following = std::next(asked);
        if (following == pieces.end()) return true;
        next = following->second.offset;
        nextLength = static_cast<uint64_t>(following->second.offset_length);
    }
    if (next >= 0 && next < size && nextLength > 0)
        startReadAhead(next, static_cast<uint32_t>(std::min<uint64_t>({nextLength, static_cast<uint64_t>(size - next),
                                                                         packet.buffer_size, UINT32_MAX})));
    return true;
}
