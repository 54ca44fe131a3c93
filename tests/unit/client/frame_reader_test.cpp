// The parent's reading of the worker's stream: frames cut anywhere, keep-
// alives between them, streams that are not the worker's, and the event's
// tail in its two forms.
#include "zeb_parent_frame.h"
#include "zeb_parent_frame_reader.h"

#include <gtest/gtest.h>

#include <malloc.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
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

TEST(ParentFrameReader, ALargeTailGetsRoomAsItsBytesArriveNotAsItsLengthAnnounces) {
    // A tail longer than the room given ahead, received in uneven reads,
    // comes out whole.
    Frame big;
    big.taskId = 9;
    big.payload = eventPayload("{}", std::string());
    const size_t text = big.payload.size();
    big.payload.resize(text + FrameReader::kTailRoomAhead + 12345);
    for (size_t i = text; i < big.payload.size(); ++i) big.payload[i] = static_cast<char>(i * 7);
    const std::string stream = zparent::encodeFrame(big);
    FrameReader reader;
    for (size_t at = 0, step = 1; at < stream.size(); at += step, step = step * 3 % 700001 + 1)
        reader.append(stream.data() + at, std::min(step, stream.size() - at));
    std::vector<Frame> got = readAll(reader);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].payload.size() + got[0].tail.size(), big.payload.size());
    EXPECT_EQ(got[0].payload + got[0].tail, big.payload);

    // A stream that announces the largest payload and sends a few bytes of
    // it holds memory for those bytes, not for the gigabyte.
    std::string header = zparent::encodeFrame(Frame{});
    const uint64_t length = FrameReader::kMaxPayload;
    for (int i = 0; i < 8; ++i) header[28 + i] = static_cast<char>(length >> (8 * i));
    const std::string start = header + eventPayload("{}", std::string(100, 'x'));
    const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
    FrameReader announced;
    announced.append(start.data(), start.size());
    Frame frame;
    EXPECT_EQ(announced.take(frame), FrameReader::Step::needMore);
    EXPECT_EQ(announced.missing(), FrameReader::kMaxPayload - (start.size() - header.size()));
    const size_t held = mallinfo2().uordblks + mallinfo2().hblkhd - before;
    EXPECT_LT(held, 2 * FrameReader::kTailRoomAhead);
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

TEST(ParentFrameReader, ALargeFramesTailIsReceivedApartAndTheFramesBehindItComeOutWhole) {
    std::string piece(3 * 1024 * 1024 + 5, '\0');
    for (size_t i = 0; i < piece.size(); ++i) piece[i] = static_cast<char>(i * 131 >> 3);
    std::string listing(400000, 'x');  // a large deflated tail
    for (size_t i = 0; i < listing.size(); i += 7) listing[i] = static_cast<char>('a' + i % 26);
    Frame raw, packed, small, noText;
    raw.taskId = 9;
    raw.payload = eventPayload(R"({"stage":2,"code":0,"uuid":"U","type":1,"info":{"id":3}})", piece);
    packed.taskId = 10;
    packed.payload = eventPayload(R"({"stage":0,"code":0,"uuid":"U","type":0})", deflated(listing));
    small.taskId = 11;
    small.payload = eventPayload(R"({"stage":3,"code":0,"uuid":"U","type":0})", "");
    noText.taskId = 12;
    noText.payload = std::string(300000, 'n');  // no NUL where a text would end
    const std::string stream = zparent::encodeFrame(raw) + kHeart + zparent::encodeFrame(packed) +
                               zparent::encodeFrame(noText) + zparent::encodeFrame(small);

    auto check = [&](std::vector<Frame> frames, const std::string& how) {
        ASSERT_EQ(frames.size(), 4u) << how;
        EXPECT_FALSE(frames[0].tail.empty()) << how << ": the piece was not received apart";
        EXPECT_EQ(frames[2].payload, noText.payload) << how;
        Event first, second, last;
        ASSERT_TRUE(zparent::parseEvent(std::move(frames[0]), first)) << how;
        EXPECT_EQ(first.info, R"({"id":3})") << how;
        EXPECT_TRUE(first.tail == piece) << how;
        ASSERT_TRUE(zparent::parseEvent(std::move(frames[1]), second)) << how;
        EXPECT_FALSE(second.tailBroken) << how;
        EXPECT_TRUE(second.tail == listing) << how;
        ASSERT_TRUE(zparent::parseEvent(std::move(frames[3]), last)) << how;
        EXPECT_EQ(last.frame.taskId, 11u) << how;
        EXPECT_EQ(last.stage, 3) << how;
    };
    // Received as the link does: at most what the reader asks for, in
    // reads that a socket may cut shorter.
    for (size_t cut : {1u, 4093u, 65536u, 1u << 22}) {
        FrameReader reader;
        std::vector<Frame> frames;
        for (size_t at = 0; at < stream.size();) {
            size_t want = std::min<size_t>(std::max<size_t>(reader.missing(), 65536), 4u << 20);
            char* into = reader.room(want);
            const size_t now = std::min({want, cut, stream.size() - at});
            memcpy(into, stream.data() + at, now);
            reader.commit(now);
            at += now;
            for (Frame& frame : readAll(reader)) frames.push_back(std::move(frame));
        }
        check(std::move(frames), "received in reads of at most " + std::to_string(cut));
    }
    // Handed over in pieces that run past a tail into what follows it.
    FrameReader reader;
    std::vector<Frame> frames;
    for (size_t at = 0; at < stream.size(); at += 100003) {
        reader.append(stream.data() + at, std::min<size_t>(100003, stream.size() - at));
        for (Frame& frame : readAll(reader)) frames.push_back(std::move(frame));
    }
    check(std::move(frames), "appended");
}
