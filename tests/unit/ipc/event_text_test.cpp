// The exact bytes of event envelopes and of the frames that carry them.
#include "zeb_event.h"
#include "zeb_json_parse.h"
#include "zeb_packet.h"
#include "zeb_zlib_buffer.h"

#include <rapidjson/document.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::string_literals;

TEST(EventText, ExactBytesForNullEmptyAndObjectInfo) {
    EventEnvelope envelope;
    envelope.stage = 0;
    envelope.code = 7;
    envelope.uuid = "00008101-000A1234";
    EXPECT_EQ(zeb::buildEventText(envelope),
              "1\0{\"stage\":0,\"code\":7,\"uuid\":\"00008101-000A1234\",\"type\":0}\0"s);

    envelope.info = "";
    EXPECT_EQ(zeb::buildEventText(envelope),
              "1\0{\"stage\":0,\"code\":7,\"uuid\":\"00008101-000A1234\",\"type\":0,\"info\":\"\"}\0"s);

    envelope.info = "{\"Count\":12}";
    envelope.stage = 1;
    envelope.type = 1;
    envelope.uuid = nullptr;
    envelope.code = -3;
    EXPECT_EQ(zeb::buildEventText(envelope),
              "1\0{\"stage\":1,\"code\":-3,\"uuid\":\"\",\"type\":1,\"info\":{\"Count\":12}}\0"s);
}

TEST(EventText, PastedTextsThatWouldBreakTheJsonAreEscaped) {
    EventEnvelope envelope;
    envelope.uuid = "bad\"uuid\\\n";
    envelope.info = "not json \"at all\"";
    std::string built = zeb::buildEventText(envelope);
    std::string json = built.substr(2, built.size() - 3);
    rapidjson::Document document;
    document.Parse(json.c_str());
    ASSERT_FALSE(document.HasParseError()) << json;
    EXPECT_STREQ(document["uuid"].GetString(), "bad\"uuid\\\n");
    EXPECT_STREQ(document["info"].GetString(), "not json \"at all\"");

    // Bytes that are no UTF-8 come out as U+FFFD, in a pasted text and inside
    // the strings of pasted JSON alike; well-formed sequences stay.
    envelope.uuid = "\xff\xfe\x80" "abc\xe2\x82\xac\xed\xa0\x80\xf0\x9f";
    envelope.info = "{\"name\":\"a\xc0\xaf" "b\"}";
    built = zeb::buildEventText(envelope);
    json = built.substr(2, built.size() - 3);
    document.Parse<rapidjson::kParseValidateEncodingFlag>(json.c_str());
    ASSERT_FALSE(document.HasParseError()) << json;
    EXPECT_STREQ(document["uuid"].GetString(),
                 "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd" "abc\xe2\x82\xac"
                 "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd");
    EXPECT_STREQ(document["info"]["name"].GetString(), "a\xef\xbf\xbd\xef\xbf\xbd" "b");

    // A quoted text and a number are JSON already and go in as they stand.
    envelope.info = "\"12\"";
    envelope.uuid = "plain";
    EXPECT_NE(zeb::buildEventText(envelope).find(",\"info\":\"12\"}"), std::string::npos);
}

TEST(EventText, ZlibRoundTripAndEmptyInputFails) {
    const std::string tail = "{\"DeviceName\":\"iPhone\"}" + std::string(5000, ' ');
    std::string packed;
    ASSERT_TRUE(bas::compressBuffer(packed, tail.data(), tail.size()));
    EXPECT_EQ(static_cast<unsigned char>(packed[0]), 0x78);  // zlib format, not raw deflate
    std::string unpacked;
    ASSERT_TRUE(bas::decompressBuffer(unpacked, packed.data(), packed.size()));
    EXPECT_EQ(unpacked, tail);

    EXPECT_FALSE(bas::decompressBuffer(unpacked, "", 0));
    EXPECT_TRUE(unpacked.empty());
    EXPECT_FALSE(bas::decompressBuffer(unpacked, "garbage!", 8));

    // A stream that would inflate past the bound is refused, with nothing kept.
    ASSERT_TRUE(bas::decompressBuffer(unpacked, packed.data(), packed.size(), tail.size()));
    EXPECT_FALSE(bas::decompressBuffer(unpacked, packed.data(), packed.size(), tail.size() - 1));
    EXPECT_TRUE(unpacked.empty());
    std::string empty;
    EXPECT_TRUE(bas::compressBuffer(empty, "", 0));
    EXPECT_FALSE(empty.empty());
}

TEST(FrameHeader, LayoutIsLittleEndianWithFiller) {
    std::string header;
    bas::appendFrameHeader(header, 0x0102030405060708ull, 0x0A0B0C0Du, 0x0E0F, 0x1112131415161718ull);
    ASSERT_EQ(header.size(), 36u);
    EXPECT_EQ(header.substr(0, 8), "kCommand");
    EXPECT_EQ(header.substr(8, 6), "\x01\x02\x03\x04\x05\x06"s);
    EXPECT_EQ(header.substr(14, 8), "\x08\x07\x06\x05\x04\x03\x02\x01"s);
    EXPECT_EQ(header.substr(22, 4), "\x0D\x0C\x0B\x0A"s);
    EXPECT_EQ(header.substr(26, 2), "\x0F\x0E"s);
    EXPECT_EQ(bas::framePayloadLength(header.data()), 0x1112131415161718ull);
}

}  // namespace

namespace {

TEST(BoundedJson, NestingPastTheBoundIsAParseErrorWhateverTheBracketsInStrings) {
    rapidjson::Document document;
    const std::string deep = std::string(200000, '[') + std::string(200000, ']');
    EXPECT_FALSE(zeb::parseJson(document, deep.c_str(), deep.size()));
    EXPECT_TRUE(document.HasParseError());
    const std::string unclosed(200000, '{');
    EXPECT_FALSE(zeb::parseJson(document, unclosed.c_str(), unclosed.size()));

    const size_t limit = zeb::kJsonDepthLimit;
    const std::string atLimit = std::string(limit, '[') + std::string(limit, ']');
    EXPECT_TRUE(zeb::parseJson(document, atLimit.c_str(), atLimit.size()));
    const std::string pastLimit = "[" + atLimit + "]";
    EXPECT_FALSE(zeb::parseJson(document, pastLimit.c_str(), pastLimit.size()));

    // Brackets and escaped quotes inside strings open nothing.
    const std::string inString = "{\"a\":\"\\\"" + std::string(10000, '[') + "\"}";
    EXPECT_TRUE(zeb::parseJson(document, inString.c_str(), inString.size()));
    EXPECT_EQ(document["a"].GetStringLength(), 10001u);
}

}  // namespace
