#include "zeb_file_piece.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace {

int64_t integerOf(const rapidjson::Value& object, const char* key) {
    auto found = object.FindMember(key);
    if (found == object.MemberEnd() || !found->value.IsInt64()) return 0;
    return found->value.GetInt64();
}

std::string textOf(const rapidjson::Value& object, const char* key) {
    auto found = object.FindMember(key);
    if (found == object.MemberEnd() || !found->value.IsString()) return {};
    return std::string(found->value.GetString(), found->value.GetStringLength());
}

// A piece name is a positive decimal id and nothing else.
bool parseId(const char* name, int64_t& id) {
    if (!name || *name < '0' || *name > '9') return false;
    char* end = nullptr;
    long long value = strtoll(name, &end, 10);
    if (*end != '\0' || value <= 0) return false;
    id = value;
    return true;
}

template <typename Writer>
void writePieces(Writer& writer, const FilePieceMap& pieces) {
    writer.Key("fbs");
    writer.StartObject();
    for (const auto& [key, piece] : pieces) {
        writer.Key(key.c_str(), static_cast<rapidjson::SizeType>(key.size()));
        writer.StartObject();
        writer.Key("status");
        writer.Int(piece.finished ? 1 : 0);
        writer.Key("offset");
        writer.Int64(piece.offset);
        writer.Key("offset_length");
        writer.Int64(piece.offset_length);
        writer.EndObject();
    }
    writer.EndObject();
}

void writeText(auto& writer, const char* key, const std::string& value) {
    writer.Key(key);
    writer.String(value.c_str(), static_cast<rapidjson::SizeType>(value.size()));
}

}  // namespace

namespace zeb {

std::string pieceKey(int64_t id) {
    char text[32];
    snprintf(text, sizeof text, "%" PRId64, id);
    return text;
}

FilePieceMap buildPieces(int64_t size, int64_t pieceSize) {
    FilePieceMap pieces;
    if (size <= 0 || pieceSize <= 0) return pieces;
    int64_t count = (size + pieceSize - 1) / pieceSize;
    for (int64_t id = 1; id <= count; ++id) {
        FilePiece piece;
        piece.id = id;
        piece.offset = (id - 1) * pieceSize;
        piece.offset_length = id == count ? size - piece.offset : pieceSize;
        pieces.emplace(pieceKey(id), piece);
    }
    return pieces;
}

std::string pieceRequestJson(const FilePiece& piece) {
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    writer.StartObject();
    writer.Key("id");
    writer.Int64(piece.id);
    writer.Key("offset_length");
    writer.Int64(piece.offset_length);
    writer.Key("offset");
    writer.Int64(piece.offset);
    writer.EndObject();
    return text.GetString();
}

bool readPieceObject(const rapidjson::Value& fbs, FilePieceMap& pieces) {
    if (!fbs.IsObject()) return false;
    pieces.clear();
    for (auto member = fbs.MemberBegin(); member != fbs.MemberEnd(); ++member) {
        FilePiece piece;
        if (!member->value.IsObject() || !parseId(member->name.GetString(), piece.id)) continue;
        piece.offset = integerOf(member->value, "offset");
        piece.offset_length = integerOf(member->value, "offset_length");
        // A piece outside any sensible file is dropped rather than trusted.
        if (piece.offset < 0 || piece.offset_length <= 0 || piece.offset > INT64_MAX - piece.offset_length) continue;
        piece.finished = integerOf(member->value, "status") != 0;
        pieces[pieceKey(piece.id)] = piece;
    }
    return true;
}

}  // namespace zeb

bool FileHeader::readDescription(const rapidjson::Value& json) {
    if (!json.IsObject()) return true;
    md5 = textOf(json, "md5");
    path = textOf(json, "path");
    std::string givenVersion = textOf(json, "version");
    if (!givenVersion.empty()) version = givenVersion;
    size = integerOf(json, "size");
    path_source = textOf(json, "path_source");
    path_project = textOf(json, "path_project");
    auto fbs = json.FindMember("fbs");
    if (fbs != json.MemberEnd()) zeb::readPieceObject(fbs->value, pieces);
    return true;
}

std::string FileHeader::writeDescription() const {
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    writer.StartObject();
    writeText(writer, "version", version);
    if (!type.empty()) writeText(writer, "type", type);
    if (!file_name.empty()) writeText(writer, "file_name", file_name);
    writeText(writer, "md5", md5);
    writer.Key("size");
    writer.Int64(size);
    writer.Key("status");
    writer.Int(0);
    writePieces(writer, pieces);
    writer.EndObject();
    return text.GetString();
}

std::string FileHeader::writeStateText() const {
    rapidjson::StringBuffer text;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(text);
    writer.SetIndent(' ', 4);
    writer.StartObject();
    writeText(writer, "version", version);
    size_t slash = path.rfind('/');
    writeText(writer, "path", slash == std::string::npos ? std::string() : path.substr(slash + 1));
    writeText(writer, "md5", md5);
    writer.Key("size");
    writer.Int64(size);
    writer.Key("status");
    writer.Int(0);
    writePieces(writer, pieces);
    writer.EndObject();
    return text.GetString();
}

const FilePiece* FileHeader::firstUnfinished() const {
    for (const auto& [key, piece] : pieces)
        if (!piece.finished) return &piece;
    return nullptr;
}

bool FileHeader::allFinished() const { return firstUnfinished() == nullptr; }

void FileHeader::copyFrom(const FileHeader& other) {
    connection = other.connection;
    path = other.path;
    path_source = other.path_source;
    path_project = other.path_project;
    note = other.note;
    type = other.type;
    file_name = other.file_name;
    version = other.version;
    md5 = other.md5;
    size = other.size;
    piece_size = other.piece_size;
    pieces = other.pieces;
}
