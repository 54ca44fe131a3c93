// The parent's reading of the worker's stream: frames cut anywhere, keep-
// alives between them, streams that are not the worker's, and the event's
// tail in its two forms.
#include "zeb_parent_frame.h"
#include "zeb_parent_frame_reader.h"

#include <gtest/gtest.h>

#include <zlib.h>

#include <string>
#include <vector>

using zparent::Event;
using zparent::Frame;
using zparent::FrameReader;

namespace {

const std::string kHeart(8, '\x16');

std::string eventPayload(const std::string& json, const std::string& tail) {
    return std::string("1\0", 2) + json + std::string("\0", 1) + tail;
}

std::string deflated(const std::string& text) {
    uLongf size = compressBound(text.size());
    std::string out(size, '\0');
    compress(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(text.data()), text.size());
    out.resize(size);
    return out;
}

std::vector<Frame> readAll(FrameReader& reader, FrameReader::Step* last = nullptr) {
    std::vector<Frame> frames;
    for (;;) {
        Frame frame;
        FrameReader::Step step = reader.take(frame);
        if (step != FrameReader::Step::frame) {
            if (last) *last = step;
            return frames;
        }
        frames.push_back(std::move(frame));
    }
}

}  // namespace

TEST(ParentFrameReader, FramesCutAnywhereWithKeepAlivesBetweenComeOutWholeAndInOrder) {
    std::string stream = kHeart;
    std::vector<Frame> sent;
    for (uint64_t i = 0; i < 3; ++i) {
        Frame frame;
        frame.taskId = 0x0102030405060708ull + i;
        frame.commandType = 702;
        frame.packetStatus = static_cast<uint16_t>(i);
        frame.payload = std::string(1000 * i + 1, static_cast<char>('a' + i));
        sent.push_back(frame);
        stream += zparent::encodeFrame(frame) + kHeart;
    }
    // Every cut of the stream into two reads.
    for (size_t cut = 0; cut <= stream.size(); ++cut) {
        FrameReader reader;
        reader.append(stream.data(), cut);
        std::vector<Frame> got = readAll(reader);
        reader.append(stream.data() + cut, stream.size() - cut);
        FrameReader::Step last{};
        for (Frame& frame : readAll(reader, &last)) got.push_back(std::move(frame));
        ASSERT_EQ(last, FrameReader::Step::needMore) << "cut at " << cut;
        ASSERT_EQ(got.size(), sent.size()) << "cut at " << cut;
        for (size_t i = 0; i < sent.size(); ++i) {
            EXPECT_EQ(got[i].taskId, sent[i].taskId);
            EXPECT_EQ(got[i].commandType, sent[i].commandType);
            EXPECT_EQ(got[i].packetStatus, sent[i].packetStatus);
            ASSERT_EQ(got[i].payload, sent[i].payload) << "cut at " << cut;
        }
    }
}

TEST(ParentFrameReader, AStreamThatIsNotTheWorkersEndsForGood) {
    FrameReader wrongMark;
    wrongMark.append("HTTP/1.1", 8);
    Frame frame;
    EXPECT_EQ(wrongMark.take(frame), FrameReader::Step::broken);
    std::string good = zparent::encodeFrame(Frame{});
    wrongMark.append(good.data(), good.size());
    EXPECT_EQ(wrongMark.take(frame), FrameReader::Step::broken);

    // Known at its first wrong byte, not after a header's worth.
    FrameReader early;
    early.append("kC0", 3);
    EXPECT_EQ(early.take(frame), FrameReader::Step::broken);

    // A payload length beyond what a parent takes: refused, nothing grown.
    Frame huge;
    std::string header = zparent::encodeFrame(huge);
    const uint64_t length = FrameReader::kMaxPayload + 1;
    for (int i = 0; i < 8; ++i) header[28 + i] = static_cast<char>(length >> (8 * i));
    FrameReader tooLong;
    tooLong.append(header.data(), header.size());
    EXPECT_EQ(tooLong.take(frame), FrameReader::Step::broken);

    // Half a keep-alive is waited for.
    FrameReader half;
    half.append(kHeart.data(), 4);
    EXPECT_EQ(half.take(frame), FrameReader::Step::needMore);
}

TEST(ParentEvent, TailsComeRawOrInflatedAndABrokenOneIsFlagged) {
    const std::string envelope = R"({"stage":2,"code":7,"uuid":"U","type":1,"info":{"a":[1]}})";
    std::string piece(300000, '\0');
    for (size_t i = 0; i < piece.size(); ++i) piece[i] = static_cast<char>(i * 31);
    Frame raw;
    raw.payload = eventPayload(envelope, piece);
    Event event;
    ASSERT_TRUE(zparent::parseEvent(raw, event));
    EXPECT_EQ(event.stage, 2);
    EXPECT_EQ(event.code, 7);
    EXPECT_EQ(event.info, R"({"a":[1]})");
    EXPECT_EQ(event.tail, piece);

    Frame packed;
    packed.payload = eventPayload(R"({"stage":0,"code":0,"uuid":"U","type":0})", deflated(R"([{"n":1}])"));
    Event list;
    ASSERT_TRUE(zparent::parseEvent(packed, list));
    EXPECT_FALSE(list.tailBroken);
    EXPECT_EQ(list.tail, R"([{"n":1}])");

    Frame broken;
    broken.payload = eventPayload(R"({"stage":0,"code":0,"uuid":"U","type":0})", "not zlib");
    Event bad;
    ASSERT_TRUE(zparent::parseEvent(broken, bad));
    EXPECT_TRUE(bad.tailBroken);

    Frame noEnvelope;
    noEnvelope.payload = std::string("1\0[1]\0", 6);
    EXPECT_FALSE(zparent::parseEvent(noEnvelope, bad));
}
