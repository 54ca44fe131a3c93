#include "zeb_file_packet_writer.h"

#include "zeb_json_parse.h"

#include <string>
#include <vector>

namespace {

std::atomic<int> openFiles{0};

bool exists(FilePieceStore& store, const std::string& path) {
    int64_t ignored = 0;
    return store.fileSize(path, ignored);
}

}  // namespace

namespace zeb {
int openTransferFiles() { return openFiles.load(); }
}  // namespace zeb

FilePacketWriter::~FilePacketWriter() { close(); }

int FilePacketWriter::open(const FileHeader& templ) {
    lastStatus = 0;
    // The template is taken first: a resumed transfer then replaces its
    // pieces by those of the state file.
    copyFrom(templ);
    if (!connection || path.empty()) return kWriterFailed;
    int result = prepare();
    if (result == kWriterReady) {
        file = connection->openWrite(path);
        if (!file) return kWriterFailed;
        path_source = uniqueName(*connection, path_source);
    }
    if (file) ++openFiles;
    return result;
}

int FilePacketWriter::prepare() {
    int64_t existing = 0;
    bool keep = connection->fileSize(path, existing) && existing == size;
    if (keep) {
        int64_t stateSize = 0;
        if (!connection->fileSize(path_project, stateSize) || stateSize <= 0 || stateSize > (16 << 20))
            return writeStateFile();
        FileStoreRef stateFile = connection->openRead(path_project);
        if (!stateFile) return writeStateFile();
        std::string text(static_cast<size_t>(stateSize), '\0');
        uint32_t got = connection->read(stateFile, text.data(), static_cast<uint32_t>(text.size()));
        connection->close(stateFile);
        text.resize(got);
        zeb::parseJson(state, text.c_str(), text.size());
        if (state.HasParseError() || !state.IsObject()) return writeStateFile();
        auto stateVersion = state.FindMember("version");
        auto stateSizeValue = state.FindMember("size");
        auto fbs = state.FindMember("fbs");
        bool matches = stateVersion != state.MemberEnd() && stateVersion->value.IsString() &&
                       version == stateVersion->value.GetString() && version == "1" &&
                       stateSizeValue != state.MemberEnd() && stateSizeValue->value.IsInt64() &&
                       stateSizeValue->value.GetInt64() == size && fbs != state.MemberEnd() &&
                       fbs->value.IsObject() && fbs->value.MemberCount() > 0;
        FilePieceMap resumed;
        if (matches && zeb::readPieceObject(fbs->value, resumed) && !resumed.empty()) {
            for (auto& [key, piece] : resumed) piece.written = 0;
            pieces = std::move(resumed);
            return kWriterReady;
        }
        return writeStateFile();
    }
    FileStoreRef created = connection->openWrite(path);
    if (!created) return kWriterNoTemporary;
    bool sized = size >= 0 && connection->setFileSize(created, static_cast<uint64_t>(size));
    connection->close(created);
    if (!sized) return kWriterNoTemporary;
    return writeStateFile();
}

int FilePacketWriter::writeStateFile() {
    if (path_project.empty()) return kWriterFailed;
    std::string text = writeStateText();
    FileStoreRef stateFile = connection->openWrite(path_project);
    if (!stateFile) return kWriterFailed;
    // A longer state file left from before must not keep its tail.
    connection->setFileSize(stateFile, 0);
    connection->write(stateFile, text.data(), static_cast<uint32_t>(text.size()));
    connection->close(stateFile);
    return kWriterReady;
}

int FilePacketWriter::write(const FilePacket& packet) {
    if (!connection || !file || !packet.buffer) return kWriterFailed;
    // Bytes outside the announced file are refused, not written.
    if (packet.offset < 0 || packet.offset > size || packet.buffer_size > UINT32_MAX ||
        static_cast<uint64_t>(size - packet.offset) < packet.buffer_size)
        return kWriterFailed;
    auto found = pieces.find(zeb::pieceKey(packet.id));
    if (found != pieces.end() && packet.buffer_size > static_cast<uint64_t>(found->second.offset_length))
        return kWriterFailed;
    uint64_t count = 0;
    if (connection->seek(file, packet.offset) &&
        connection->write(file, packet.buffer, static_cast<uint32_t>(packet.buffer_size)) == packet.buffer_size)
        count = packet.buffer_size;
    if (found != pieces.end() && count > 0) {
        FilePiece& piece = found->second;
        // A piece sent again from its start replaces what came before.
        piece.written = packet.offset == piece.offset ? count : piece.written + count;
        if (piece.written >= static_cast<uint64_t>(piece.offset_length)) piece.finished = true;
    }
    return count == packet.buffer_size && count > 0 ? kWriterReady : kWriterFailed;
}

void FilePacketWriter::close() {
    if (closed) return;
    closed = true;
    if (!connection) return;
    if (file) {
        --openFiles;
        connection->close(file);
        file = 0;
    }
    if (path.empty()) return;
    if (!pieces.empty() && allFinished()) {
        if (!path_project.empty()) connection->remove(path_project);
        connection->rename(path, path_source);
    } else {
        if (!path_project.empty()) connection->remove(path_project);
        connection->remove(path);
    }
}

std::string FilePacketWriter::uniqueName(FilePieceStore& connection, const std::string& path) {
    if (!exists(connection, path)) return path;
    size_t slash = path.rfind('/');
    size_t dot = path.rfind('.');
    if (slash == std::string::npos || dot == std::string::npos || dot < slash) return path;
    std::string folder = path.substr(0, slash + 1);
    std::string stem = path.substr(slash + 1, dot - slash - 1);
    std::string extension = path.substr(dot);
    for (int n = 1; n < 1000; ++n) {
        std::string candidate = folder + stem + "(" + std::to_string(n) + ")" + extension;
        if (!exists(connection, candidate)) return candidate;
    }
    return path;  // all taken: the file will be overwritten
}
