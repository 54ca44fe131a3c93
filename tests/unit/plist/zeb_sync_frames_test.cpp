// Frames over a scripted service connection: the binding's send and receive
// slots are pointed at an in-memory peer for the length of each test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "zeb_scripted_service.h"
#include "zeb_sync_frames.h"

namespace {

class SyncFrames : public ::testing::Test {
protected:
    void SetUp() override { peer_.largestRead = 7; }
    void QueueFrame(uint32_t length, uint8_t fill = 'a', bool withBody = true) {
        peer_.queueLength(length);
        if (withBody) peer_.incoming.insert(peer_.incoming.end(), length, fill);
    }

    ScriptedPeer peer_;
    ScriptedService service_{peer_};
};

struct Seen {
    std::vector<uint32_t> lengths;
    std::vector<uint8_t> firstBytes;
    int stopAfter = 100;
};

void Record(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    auto* seen = static_cast<Seen*>(context);
    seen->lengths.push_back(length);
    seen->firstBytes.push_back(bytes[0]);
    *result = static_cast<uint8_t>(seen->lengths.size());
    *keepWaiting = static_cast<int>(seen->lengths.size()) < seen->stopAfter;
}

TEST_F(SyncFrames, FramesAreHandedOverUntilTheHandlerStops) {
    QueueFrame(5, 'x');
    QueueFrame(300, 'y');
    QueueFrame(9, 'z');
    Seen seen;
    seen.stopAfter = 2;
    EXPECT_EQ(SyncReceive(nullptr, Record, &seen), 2);
    EXPECT_EQ(seen.lengths, (std::vector<uint32_t>{5, 300}));
    EXPECT_EQ(seen.firstBytes, (std::vector<uint8_t>{'x', 'y'}));
}

TEST_F(SyncFrames, LengthBoundariesOfTenMiB) {
    QueueFrame(kSyncMaxFrame, 'm');
    QueueFrame(kSyncMaxFrame + 1, 'n', false);
    Seen seen;
    EXPECT_EQ(SyncReceive(nullptr, Record, &seen), 1);
    ASSERT_EQ(seen.lengths.size(), 1u) << "10,485,760 is read, 10,485,761 ends the loop";
    EXPECT_EQ(seen.lengths[0], kSyncMaxFrame);
}

TEST_F(SyncFrames, ZeroLengthOrShortBodyEndsTheLoop) {
    QueueFrame(0);
    Seen seen;
    EXPECT_EQ(SyncReceive(nullptr, Record, &seen), 0);
    EXPECT_TRUE(seen.lengths.empty());

    peer_ = ScriptedPeer();
    QueueFrame(4, 'q');
    QueueFrame(50, 'r', false);  // the link ends inside the prefix's body
    peer_.incoming.insert(peer_.incoming.end(), 10, 'r');
    Seen partial;
    EXPECT_EQ(SyncReceive(nullptr, Record, &partial), 1);
    EXPECT_EQ(partial.lengths, (std::vector<uint32_t>{4}));
}

TEST_F(SyncFrames, SendWritesBigEndianLengthThenBody) {
    SyncMessage message;
    const uint8_t body[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20,
                            21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40};
    std::vector<uint8_t> big(0x01020304 & 0xffff, 7);  // 0x0304 bytes
    message.bytes = big.data();
    message.length = static_cast<uint32_t>(big.size());
    EXPECT_TRUE(SyncSendOnly(nullptr, &message));
    ASSERT_EQ(peer_.sent.size(), 4 + big.size());
    EXPECT_EQ(peer_.sent[0], 0x00);
    EXPECT_EQ(peer_.sent[1], 0x00);
    EXPECT_EQ(peer_.sent[2], 0x03);
    EXPECT_EQ(peer_.sent[3], 0x04);
    EXPECT_EQ(peer_.sendCalls, 2);

    peer_ = ScriptedPeer();
    peer_.failBodySend = true;
    message.bytes = body;
    message.length = sizeof body;
    EXPECT_FALSE(SyncSendOnly(nullptr, &message));
}

TEST_F(SyncFrames, ExchangeSendsThenReceives) {
    QueueFrame(3, 'k');
    SyncMessage message;
    const uint8_t body[] = {'h', 'i'};
    message.bytes = body;
    message.length = 2;
    Seen seen;
    seen.stopAfter = 1;
    EXPECT_EQ(SyncExchange(nullptr, &message, Record, &seen), 1);
    EXPECT_EQ(peer_.sent, (std::vector<uint8_t>{0, 0, 0, 2, 'h', 'i'}));
    EXPECT_EQ(seen.lengths, (std::vector<uint32_t>{3}));
}

}  // namespace
