// The JSON forms of file pieces, byte for byte, and how pieces are cut.
#include "zeb_file_packet.h"
#include "zeb_file_piece.h"

#include <gtest/gtest.h>

TEST(FilePieceJson, DescriptionRequestAndStateFileAreExact) {
    FileHeader header;
    header.md5 = "a";
    header.size = 5;
    header.pieces = zeb::buildPieces(5, 2);
    EXPECT_EQ(header.writeDescription(),
              "{\"version\":\"1\",\"md5\":\"a\",\"size\":5,\"status\":0,\"fbs\":{"
              "\"1\":{\"status\":0,\"offset\":0,\"offset_length\":2},"
              "\"2\":{\"status\":0,\"offset\":2,\"offset_length\":2},"
              "\"3\":{\"status\":0,\"offset\":4,\"offset_length\":1}}}");
    header.type = "jpg";
    header.file_name = "a \"b\".jpg";
    const std::string head = "{\"version\":\"1\",\"type\":\"jpg\",\"file_name\":\"a \\\"b\\\".jpg\",\"md5\":\"a\",\"size\"";
    EXPECT_EQ(header.writeDescription().substr(0, head.size()), head);

    EXPECT_EQ(zeb::pieceRequestJson(header.pieces.at("3")), "{\"id\":3,\"offset_length\":1,\"offset\":4}");

    header.path = "/Books/a.epub.bak";
    header.pieces = zeb::buildPieces(1, 2);
    EXPECT_EQ(header.writeStateText(),
              "{\n"
              "    \"version\": \"1\",\n"
              "    \"path\": \"a.epub.bak\",\n"
              "    \"md5\": \"a\",\n"
              "    \"size\": 5,\n"
              "    \"status\": 0,\n"
              "    \"fbs\": {\n"
              "        \"1\": {\n"
              "            \"status\": 0,\n"
              "            \"offset\": 0,\n"
              "            \"offset_length\": 1\n"
              "        }\n"
              "    }\n"
              "}");
    header.path = "no-slash.bak";
    EXPECT_NE(header.writeStateText().find("\"path\": \"\""), std::string::npos);
}

TEST(FilePieceJson, PiecesAtTheBoundaries) {
    const int64_t piece = kDownloadPieceSize;
    auto exact = zeb::buildPieces(2 * piece, piece);
    ASSERT_EQ(exact.size(), 2u);
    EXPECT_EQ(exact.at("2").offset, piece);
    EXPECT_EQ(exact.at("2").offset_length, piece);

    auto plusOne = zeb::buildPieces(piece + 1, piece);
    ASSERT_EQ(plusOne.size(), 2u);
    EXPECT_EQ(plusOne.at("2").offset_length, 1);

    auto one = zeb::buildPieces(1, piece);
    ASSERT_EQ(one.size(), 1u);
    EXPECT_EQ(one.at("1").offset_length, 1);

    EXPECT_TRUE(zeb::buildPieces(0, piece).empty());
    EXPECT_TRUE(zeb::buildPieces(10, 0).empty());

    // Text order: piece 10 straight after piece 1.
    auto eleven = zeb::buildPieces(11 * piece, piece);
    std::vector<std::string> order;
    for (const auto& [key, value] : eleven) order.push_back(key);
    EXPECT_EQ(order, (std::vector<std::string>{"1", "10", "11", "2", "3", "4", "5", "6", "7", "8", "9"}));
    FileHeader header;
    header.pieces = eleven;
    header.pieces["1"].finished = true;
    EXPECT_EQ(header.firstUnfinished()->id, 10);
}

TEST(FilePieceJson, ParentTextsReadDefensively) {
    rapidjson::Document info;
    info.Parse("{\"offset_length\":7,\"id\":3}");
    FilePacket packet;
    packet.readInfo(info);
    EXPECT_EQ(packet.id, 3);
    EXPECT_EQ(packet.offset, 0);
    EXPECT_EQ(packet.offset_length, 7);
    info.Parse("[1,2]");
    packet.readInfo(info);
    EXPECT_EQ(packet.id, 0);

    rapidjson::Document description;
    description.Parse(
        "{\"md5\":\"m\",\"version\":\"1\",\"size\":9,\"path_source\":\"/a\",\"fbs\":{"
        "\"2\":{\"status\":1,\"offset\":4,\"offset_length\":5},\"1\":{\"offset\":0,\"offset_length\":4},"
        "\"x\":{\"offset\":0,\"offset_length\":1},\"3\":{\"offset\":-1,\"offset_length\":1},"
        "\"4\":{\"offset\":9223372036854775807,\"offset_length\":9},\"5\":7}}");
    FileHeader header;
    EXPECT_TRUE(header.readDescription(description));
    EXPECT_EQ(header.md5, "m");
    EXPECT_EQ(header.size, 9);
    EXPECT_EQ(header.path_source, "/a");
    ASSERT_EQ(header.pieces.size(), 2u);
    EXPECT_TRUE(header.pieces.at("2").finished);
    EXPECT_FALSE(header.pieces.at("1").finished);
}
