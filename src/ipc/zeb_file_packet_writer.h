// Assembles a device file from pieces, in a temporary ".bak" file beside a
// ".json" state file, and picks up a transfer that a crash interrupted
// when both are still there and describe the same file.
#pragma once

#include "zeb_file_packet.h"
#include "zeb_file_piece.h"

#include <rapidjson/document.h>

#include <atomic>

// open() results.
inline constexpr int kWriterFailed = 0;
inline constexpr int kWriterNoTemporary = 2;
inline constexpr int kWriterReady = 3;

class FilePacketWriter : public FileHeader {
public:
    ~FilePacketWriter() override;
    // `templ` brings the description, connection, path (temporary file),
    // path_source (final name) and path_project (state file).
    int open(const FileHeader& templ);
    // kWriterReady when the whole piece reached the file, else 0.
    int write(const FilePacket& packet);
    // Renames the temporary file to its final name when every piece is
    // finished; otherwise removes it and the state file. Runs once.
    void close();

    // `path` when free on the device, else "stem(n).ext" for the first free
    // n below 1000; `path` itself when it has no "/" or no "." or all are taken.
    static std::string uniqueName(FilePieceStore& connection, const std::string& path);

    int lastStatus = 0;

private:
    int prepare();
    int writeStateFile();

    rapidjson::Document state;
    bool closed = false;
};

namespace zeb {
// Files of transfers currently open, for diagnostics.
int openTransferFiles();
}
