// Reassembly of kCommand frames from arbitrary reads.
#include "zeb_frame_reassembler.h"
#include "zeb_ipc_packet_channel.h"
#include "zeb_packet.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string frame(uint64_t taskId, uint32_t command, const std::string& payload, uint16_t status = 0) {
    std::string out;
    bas::appendFrameHeader(out, taskId, command, status, payload.size());
    return out + payload;
}

struct Collector {
    std::vector<std::string> frames;
    bas::FrameReassembler::Deliver deliver() {
        return [this](const char* data, size_t size) { frames.emplace_back(data, size); };
    }
};

TEST(FrameReassembly, FrameSplitAtEveryOffsetIsDeliveredOnceWhole) {
    const std::string whole = frame(7, 300, std::string("1\0{\"uuid\":\"abc\"}\0", 18));
    for (size_t cut = 1; cut < whole.size(); ++cut) {
        bas::FrameReassembler reassembler;
        Collector sink;
        reassembler.feed(whole.data(), cut, sink.deliver());
        reassembler.feed(whole.data() + cut, whole.size() - cut, sink.deliver());
        ASSERT_EQ(sink.frames.size(), 1u) << "cut at " << cut;
        EXPECT_EQ(sink.frames[0], whole) << "cut at " << cut;
        EXPECT_EQ(reassembler.buffered(), 0u);
    }
}

TEST(FrameReassembly, SeveralFramesInOneReadComeOutInOrderAndAPartialThirdWaits) {
    const std::string a = frame(1, 10, "first");
    const std::string b = frame(2, 20, "second");
    const std::string c = frame(3, 30, "third payload");
    const std::string read = a + b + c.substr(0, 20);
    bas::FrameReassembler reassembler;
    Collector sink;
    reassembler.feed(read.data(), read.size(), sink.deliver());
    ASSERT_EQ(sink.frames.size(), 2u);
    EXPECT_EQ(sink.frames[0], a);
    EXPECT_EQ(sink.frames[1], b);
    EXPECT_EQ(reassembler.buffered(), 20u);

    // The rest of the third arrives without the magic in front: it joins.
    reassembler.feed(c.data() + 20, c.size() - 20, sink.deliver());
    ASSERT_EQ(sink.frames.size(), 3u);
    EXPECT_EQ(sink.frames[2], c);
}

TEST(FrameReassembly, ThreeWholeFramesAndManyTinyOnesInOneRead) {
    std::string read;
    for (int i = 0; i < 500; ++i) read += frame(i, 1, i % 3 ? "x" : "");
    bas::FrameReassembler reassembler;
    Collector sink;
    reassembler.feed(read.data(), read.size(), sink.deliver());
    ASSERT_EQ(sink.frames.size(), 500u);
    EXPECT_EQ(sink.frames[499], frame(499, 1, "x"));
}

TEST(FrameReassembly, MagicInsideAPayloadDoesNotSplitTheFrame) {
    const std::string payload = std::string("1\0{}\0", 5) + "xxkCommandkCommand" + std::string(100, 'y');
    const std::string whole = frame(9, 1, payload);
    bas::FrameReassembler reassembler;
    Collector sink;
    // Cut so that the second read does not begin with the magic.
    reassembler.feed(whole.data(), 40, sink.deliver());
    reassembler.feed(whole.data() + 40, whole.size() - 40, sink.deliver());
    ASSERT_EQ(sink.frames.size(), 1u);
    EXPECT_EQ(sink.frames[0], whole);
}

TEST(FrameReassembly, AReadThatBeginsWithTheMagicStartsAFreshFrame) {
    const std::string first = frame(1, 1, std::string(200, 'a'));
    const std::string second = frame(2, 2, "b");
    bas::FrameReassembler reassembler;
    Collector sink;
    reassembler.feed(first.data(), 100, sink.deliver());  // first is cut short
    reassembler.feed(second.data(), second.size(), sink.deliver());
    ASSERT_EQ(sink.frames.size(), 1u);
    EXPECT_EQ(sink.frames[0], second);
}

TEST(FrameReassembly, StrayBytesWaitAndAreDroppedByTheNextFrame) {
    bas::FrameReassembler reassembler;
    Collector sink;
    const std::string junk(100, 'j');
    reassembler.feed(junk.data(), junk.size(), sink.deliver());
    EXPECT_TRUE(sink.frames.empty());
    const std::string good = frame(5, 5, "ok");
    reassembler.feed(good.data(), good.size(), sink.deliver());
    ASSERT_EQ(sink.frames.size(), 1u);
    EXPECT_EQ(sink.frames[0], good);
}

TEST(FrameReassembly, AnAbsurdPayloadLengthDropsTheBufferInsteadOfWaitingForIt) {
    std::string header;
    bas::appendFrameHeader(header, 1, 1, 0, (1ull << 40));
    bas::FrameReassembler reassembler;
    Collector sink;
    reassembler.feed(header.data(), header.size(), sink.deliver());
    EXPECT_EQ(reassembler.buffered(), 0u);
    EXPECT_EQ(reassembler.expectedSize(), 0u);
    const std::string more(5000, 'z');
    reassembler.feed(more.data(), more.size(), sink.deliver());
    const std::string good = frame(2, 2, "fine");
    reassembler.feed(good.data(), good.size(), sink.deliver());
    ASSERT_EQ(sink.frames.size(), 1u);
    EXPECT_EQ(sink.frames[0], good);
}

TEST(PacketFromFrame, CopiesFieldsAndTerminatesThePayload) {
    const std::string whole = frame(0x1122334455667788ull, 0xA0B0C0D0u, "payload", 0xBEEF);
    IPCPacket1* packet = bas::packetFromFrame(whole.data(), whole.size(), nullptr);
    EXPECT_EQ(packet->taskId, 0x1122334455667788ull);
    EXPECT_EQ(packet->commandType, 0xA0B0C0D0u);
    EXPECT_EQ(packet->packetStatus, 0xBEEF);
    ASSERT_EQ(packet->length, 7u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(packet->data)), "payload");  // NUL behind it
    bas::freePacket(packet);

    const std::string empty = frame(1, 2, "");
    packet = bas::packetFromFrame(empty.data(), empty.size(), nullptr);
    EXPECT_EQ(packet->length, 0u);
    EXPECT_EQ(packet->data, nullptr);
    bas::freePacket(packet);
}

}  // namespace
