// Reads a device file and hands it out piece by piece.
#pragma once

#include "zeb_file_packet.h"
#include "zeb_file_piece.h"

class FilePacketReader : public FileHeader {
public:
    ~FilePacketReader() override;
    // `templ` brings connection, path, version and piece_size. False when
    // the file is missing, empty, or won't open.
    bool open(const FileHeader& templ);
    // True when at least one byte was read into packet.buffer.
    bool read(FilePacket& packet);
};
