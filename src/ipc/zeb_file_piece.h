// One file as it travels in pieces: its description, its pieces, and the
// JSON forms the parent and the device's state file read.
#pragma once

#include "zeb_file_piece_store.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

struct FilePiece {
    int64_t id = 0;  // counted from 1
    int64_t offset = 0;
    int64_t offset_length = 0;
    bool finished = false;
    uint64_t written = 0;
};

// Pieces keyed by their id in decimal text and kept in text order, so that
// piece 10 comes straight after piece 1: the parent is asked in this order.
using FilePieceMap = std::map<std::string, FilePiece>;

// Download pieces are 2 MiB.
inline constexpr int64_t kDownloadPieceSize = 0x200000;

class FileHeader {
public:
    virtual ~FileHeader() = default;

    std::shared_ptr<FilePieceStore> connection;
    FileStoreRef file = 0;
    std::string path;          // read from, or the temporary file written to
    std::string path_source;   // the writer's final name
    std::string path_project;  // the writer's state file
    std::string note;          // kept for the parent; nothing here reads it
    std::string type;
    std::string file_name;
    std::string version = "1";
    std::string md5;
    int64_t size = 0;
    int64_t piece_size = 0;
    FilePieceMap pieces;

    // Fills the fields from a parsed upload description; always true.
    bool readDescription(const rapidjson::Value& json);
    // The download description: compact, type and file_name only when set.
    std::string writeDescription() const;
    // The device-side state file: indented, "path" naming the temporary file.
    std::string writeStateText() const;
    // The first unfinished piece in text order, or null.
    const FilePiece* firstUnfinished() const;
    bool allFinished() const;
    // The fields a template hands to a reader or writer.
    void copyFrom(const FileHeader& other);
};

namespace zeb {

std::string pieceKey(int64_t id);
// Pieces of `pieceSize` covering `size` bytes; the last holds the rest.
FilePieceMap buildPieces(int64_t size, int64_t pieceSize);
// {"id":n,"offset_length":n,"offset":n}
std::string pieceRequestJson(const FilePiece& piece);
// The "fbs" object of a description: members named by decimal ids.
// Returns false when it is not an object or a member is malformed.
bool readPieceObject(const rapidjson::Value& fbs, FilePieceMap& pieces);

}  // namespace zeb
