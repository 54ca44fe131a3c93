// Reading and writing a file in pieces, resume, and the close rule.
#include "memory_piece_store.h"
#include "zeb_file_packet_reader.h"
#include "zeb_file_packet_writer.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

std::shared_ptr<MemoryPieceStore> storeWith(const std::string& path, const std::string& bytes) {
    auto store = std::make_shared<MemoryPieceStore>();
    if (!path.empty()) store->files[path] = bytes;
    return store;
}

FileHeader uploadTemplate(const std::shared_ptr<MemoryPieceStore>& store, const std::string& target, int64_t size,
                          int64_t pieceSize) {
    FileHeader templ;
    templ.connection = store;
    templ.size = size;
    templ.md5 = "m";
    templ.pieces = zeb::buildPieces(size, pieceSize);
    templ.path_source = target;
    templ.path = target + ".bak";
    templ.path_project = templ.path + ".json";
    return templ;
}

FileHeader downloadTemplate(const std::shared_ptr<MemoryPieceStore>& store, const std::string& path,
                           int64_t pieceSize) {
    FileHeader templ;
    templ.connection = store;
    templ.piece_size = pieceSize;
    templ.path = path;
    return templ;
}

std::string pattern(size_t size, int period) {
    std::string bytes;
    for (size_t i = 0; i < size; ++i) bytes += static_cast<char>('A' + i % period);
    return bytes;
}

FilePacket pieceOf(const FilePiece& piece, std::string& bytes) {
    FilePacket packet;
    packet.id = piece.id;
    packet.offset = piece.offset;
    packet.offset_length = piece.offset_length;
    packet.buffer = reinterpret_cast<unsigned char*>(bytes.data()) + piece.offset;
    packet.buffer_size = static_cast<uint64_t>(piece.offset_length);
    return packet;
}

}  // namespace

TEST(FilePacketReader, OpensOnlyRealFilesAndReadsWithinThem) {
    auto store = storeWith("/a.bin", "0123456789");
    store->files["/empty"] = "";
    FileHeader templ;
    templ.connection = store;
    templ.piece_size = 4;

    FilePacketReader missing, empty, noPieceSize;
    templ.path = "/none";
    EXPECT_FALSE(missing.open(templ));
    templ.path = "/empty";
    EXPECT_FALSE(empty.open(templ));
    templ.path = "/a.bin";
    templ.piece_size = 0;
    EXPECT_FALSE(noPieceSize.open(templ));

    templ.piece_size = 4;
    {
        FilePacketReader reader;
        ASSERT_TRUE(reader.open(templ));
        EXPECT_EQ(reader.md5, "a");
        EXPECT_EQ(reader.pieces.size(), 3u);
        unsigned char buffer[6];
        FilePacket packet;
        packet.buffer = buffer;
        packet.buffer_size = sizeof buffer;
        packet.id = 3;
        packet.offset = 8;
        packet.offset_length = 4;
        ASSERT_TRUE(reader.read(packet));
        EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), packet.result_size), "89");
        packet.offset = 0;
        packet.offset_length = 100;  // capped by the buffer
        ASSERT_TRUE(reader.read(packet));
        EXPECT_EQ(packet.result_size, 6u);
        for (auto [id, offset, length] : {std::tuple{0, 0, 4}, {1, 0, 0}, {1, 10, 4}, {1, -1, 4}}) {
            packet.id = id;
            packet.offset = offset;
            packet.offset_length = length;
            EXPECT_FALSE(reader.read(packet)) << id << " " << offset << " " << length;
        }
        EXPECT_EQ(store->openCount(), 1);
    }
    EXPECT_EQ(store->openCount(), 0);  // the reader closes its file
}

TEST(FilePacketReader, PiecesReadAheadInOrderOrAskedOutOfOrderAreTheFilesBytes) {
    const std::string bytes = pattern(4000, 26);
    auto store = storeWith("/big.bin", bytes);
    FilePacketReader reader;
    ASSERT_TRUE(reader.open(downloadTemplate(store, "/big.bin", 1024)));
    unsigned char buffer[1024];
    auto readAt = [&](int64_t offset) {
        FilePacket packet;
        packet.buffer = buffer;
        packet.buffer_size = sizeof buffer;
        packet.id = 1;
        packet.offset = offset;
        packet.offset_length = 1024;
        if (!reader.read(packet)) return std::string("(nothing)");
        return std::string(reinterpret_cast<char*>(packet.buffer), packet.result_size);
    };
    // In order: from the second piece on each was read while the one before
    // was out; the last is short.
    for (int64_t offset : {0, 1024, 2048, 3072}) EXPECT_EQ(readAt(offset), bytes.substr(offset, 1024)) << offset;
    // Out of order and again: what was read ahead is not handed out wrongly.
    for (int64_t offset : {1024, 0, 3072, 2048, 2048, 0}) EXPECT_EQ(readAt(offset), bytes.substr(offset, 1024)) << offset;
}

TEST(FilePacketReader, PiecesAskedInTheOrderOfTheirKeysAreEachReadFromTheDeviceOnce) {
    // 12 pieces: the parent asks 1, 10, 11, 12, 2, 3, ... and the piece read
    // ahead must be the one asked next, or every jump costs a second read.
    const std::string bytes = pattern(12 * 100 - 7, 47);
    auto store = storeWith("/big.bin", bytes);
    FilePacketReader reader;
    ASSERT_TRUE(reader.open(downloadTemplate(store, "/big.bin", 100)));
    unsigned char buffer[100];
    std::string assembled(bytes.size(), '\0');
    for (const auto& [key, piece] : FilePieceMap(reader.pieces)) {
        FilePacket packet;
        packet.buffer = buffer;
        packet.buffer_size = sizeof buffer;
        packet.id = piece.id;
        packet.offset = piece.offset;
        packet.offset_length = piece.offset_length;
        ASSERT_TRUE(reader.read(packet)) << key;
        ASSERT_EQ(packet.result_size, static_cast<uint64_t>(piece.offset_length)) << key;
        assembled.replace(piece.offset, packet.result_size, reinterpret_cast<char*>(packet.buffer), packet.result_size);
    }
    EXPECT_EQ(assembled, bytes);
    EXPECT_EQ(store->bytesRead, bytes.size());
}

TEST(FilePacketWriter, FreshUploadRenamesOnCompletion) {
    std::string bytes = "abcdefghij";
    auto store = storeWith("", "");
    {
        FilePacketWriter writer;
        ASSERT_EQ(writer.open(uploadTemplate(store, "/D/f.txt", 10, 4)), kWriterReady);
        EXPECT_EQ(store->files.at("/D/f.txt.bak").size(), 10u);
        EXPECT_NE(store->files.at("/D/f.txt.bak.json").find("\"path\": \"f.txt.bak\""), std::string::npos);
        EXPECT_EQ(zeb::openTransferFiles(), 1);
        for (const auto& [key, piece] : FilePieceMap(writer.pieces)) {
            FilePacket packet = pieceOf(piece, bytes);
            EXPECT_EQ(writer.write(packet), kWriterReady);
        }
        EXPECT_TRUE(writer.allFinished());
    }
    EXPECT_EQ(zeb::openTransferFiles(), 0);
    EXPECT_EQ(store->files.at("/D/f.txt"), bytes);
    EXPECT_FALSE(store->files.count("/D/f.txt.bak"));
    EXPECT_FALSE(store->files.count("/D/f.txt.bak.json"));
}

TEST(FilePacketWriter, UnfinishedUploadRemovesItsFiles) {
    std::string bytes = "abcdefghij";
    auto store = storeWith("", "");
    {
        FilePacketWriter writer;
        ASSERT_EQ(writer.open(uploadTemplate(store, "/D/f.txt", 10, 4)), kWriterReady);
        FilePacket first = pieceOf(writer.pieces.at("1"), bytes);
        ASSERT_EQ(writer.write(first), kWriterReady);
        // Short bytes: written but the piece stays open.
        FilePacket shortPiece = pieceOf(writer.pieces.at("2"), bytes);
        shortPiece.buffer_size = 2;
        EXPECT_EQ(writer.write(shortPiece), kWriterReady);
        EXPECT_FALSE(writer.pieces.at("2").finished);
        // Outside the file, or longer than its piece: refused.
        FilePacket outside = first;
        outside.offset = 8;
        EXPECT_EQ(writer.write(outside), kWriterFailed);
        outside.offset = -1;
        EXPECT_EQ(writer.write(outside), kWriterFailed);
        FilePacket tooLong = pieceOf(writer.pieces.at("3"), bytes);
        tooLong.buffer_size = 3;
        tooLong.buffer = first.buffer;
        EXPECT_EQ(writer.write(tooLong), kWriterFailed);
    }
    EXPECT_TRUE(store->files.empty());
}

TEST(FilePacketWriter, ResumesOnlyFromAMatchingStateFile) {
    std::string bytes = "abcdefghij";
    auto store = storeWith("/D/f.txt.bak", "abcd______");
    FileHeader state = uploadTemplate(store, "/D/f.txt", 10, 4);
    state.pieces["1"].finished = true;
    store->files["/D/f.txt.bak.json"] = state.writeStateText();
    {
        FilePacketWriter writer;
        ASSERT_EQ(writer.open(uploadTemplate(store, "/D/f.txt", 10, 4)), kWriterReady);
        EXPECT_EQ(writer.firstUnfinished()->id, 2);
        EXPECT_EQ(store->files.at("/D/f.txt.bak"), "abcd______");  // kept
        for (const char* key : {"2", "3"}) {
            FilePacket packet = pieceOf(writer.pieces.at(key), bytes);
            EXPECT_EQ(writer.write(packet), kWriterReady);
        }
    }
    EXPECT_EQ(store->files.at("/D/f.txt"), bytes);

    // Another size, or a state file that is not JSON: a fresh transfer.
    for (const std::string& stateText : {state.writeStateText(), std::string("not json")}) {
        auto again = storeWith("/D/g.txt.bak", "abcd______");
        again->files["/D/g.txt.bak.json"] = stateText;
        int64_t size = stateText == "not json" ? 10 : 12;
        again->files["/D/g.txt.bak"].resize(static_cast<size_t>(size), '_');
        FilePacketWriter writer;
        ASSERT_EQ(writer.open(uploadTemplate(again, "/D/g.txt", size, 4)), kWriterReady);
        EXPECT_EQ(writer.firstUnfinished()->id, 1);
        EXPECT_NE(again->files.at("/D/g.txt.bak.json").find("\"size\": " + std::to_string(size)), std::string::npos);
    }
}

TEST(FilePacketWriter, OpenFailuresAndUniqueNames) {
    auto store = storeWith("", "");
    store->failOpen.insert("/D/f.txt.bak");
    FilePacketWriter blocked;
    EXPECT_EQ(blocked.open(uploadTemplate(store, "/D/f.txt", 10, 4)), kWriterNoTemporary);

    auto names = storeWith("/D/a.txt", "x");
    EXPECT_EQ(FilePacketWriter::uniqueName(*names, "/D/b.txt"), "/D/b.txt");
    EXPECT_EQ(FilePacketWriter::uniqueName(*names, "/D/a.txt"), "/D/a(1).txt");
    names->files["/D/a(1).txt"] = "x";
    EXPECT_EQ(FilePacketWriter::uniqueName(*names, "/D/a.txt"), "/D/a(2).txt");
    names->files["/D/noext"] = "x";
    EXPECT_EQ(FilePacketWriter::uniqueName(*names, "/D/noext"), "/D/noext");
    names->files["noslash.txt"] = "x";
    EXPECT_EQ(FilePacketWriter::uniqueName(*names, "noslash.txt"), "noslash.txt");
    names->files["/D.d/x"] = "x";  // the dot is in the folder, not the name
    EXPECT_EQ(FilePacketWriter::uniqueName(*names, "/D.d/x"), "/D.d/x");
    for (int n = 1; n < 1000; ++n) names->files["/E/z(" + std::to_string(n) + ").bin"] = "x";
    names->files["/E/z.bin"] = "x";
    EXPECT_EQ(FilePacketWriter::uniqueName(*names, "/E/z.bin"), "/E/z.bin");

    // An upload onto a taken name lands beside it.
    std::string bytes = "xy";
    auto taken = storeWith("/D/a.txt", "old");
    {
        FilePacketWriter writer;
        ASSERT_EQ(writer.open(uploadTemplate(taken, "/D/a.txt", 2, 4)), kWriterReady);
        FilePacket packet = pieceOf(writer.pieces.at("1"), bytes);
        writer.write(packet);
    }
    EXPECT_EQ(taken->files.at("/D/a.txt"), "old");
    EXPECT_EQ(taken->files.at("/D/a(1).txt"), "xy");
}
