// Reads a device file and hands it out piece by piece.
#pragma once

#include "zeb_file_packet.h"
#include "zeb_file_piece.h"

#include <memory>
#include <thread>

class FilePacketReader : public FileHeader {
public:
    ~FilePacketReader() override;
    // `templ` brings connection, path, version and piece_size. False when
    // the file is missing, empty, or won't open.
    bool open(const FileHeader& templ);
    // True when at least one byte was read. packet.buffer then points at
    // the piece: the caller's buffer, or the reader's own when the piece had
    // been read ahead; it stays valid until the next read.
    bool read(FilePacket& packet);

private:
    // While the parent handles one piece, the next one is read from the
    // device into the other of two buffers: a pull then costs the slower of
    // the two links, not their sum.
    struct ReadAhead {
        std::thread reader;
        int64_t offset = -1;
        uint32_t length = 0;
        uint32_t got = 0;
        int buffer = 0;  // which of the two
    };
    void startReadAhead(int64_t offset, uint32_t length);
    void finishReadAhead();
    unsigned char* ownBuffer(int which, size_t length);

    ReadAhead ahead_;
    std::unique_ptr<unsigned char[]> buffers_[2];
    size_t bufferSize_ = 0;
};
