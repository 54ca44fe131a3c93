// The socket and packet channels over real loopback sockets.
#include "zeb_ipc_packet_channel.h"
#include "zeb_packet.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

// A plain listening socket that plays the other end.
class Peer {
public:
    Peer() {
        listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(listener, 4);
        socklen_t size = sizeof address;
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(address.sin_port);
    }
    ~Peer() {
        if (connection >= 0) close(connection);
        close(listener);
    }
    void accept() { connection = ::accept(listener, nullptr, nullptr); }
    void send(const std::string& bytes) { ASSERT_EQ(::send(connection, bytes.data(), bytes.size(), 0), (ssize_t)bytes.size()); }
    std::string receive(std::chrono::milliseconds timeout) {
        pollfd waiting{connection, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(timeout.count())) <= 0) return {};
        char buffer[256];
        ssize_t got = recv(connection, buffer, sizeof buffer, 0);
        return got > 0 ? std::string(buffer, got) : std::string();
    }
    void hangUp() {
        close(connection);
        connection = -1;
    }
    int listener = -1;
    int connection = -1;
    int port = 0;
};

template <typename T>
class Inbox {
public:
    void put(T value) {
        {
            std::lock_guard<std::mutex> hold(lock);
            items.push_back(std::move(value));
        }
        ready.notify_all();
    }
    // Waits until `count` items are in, or the time-out.
    std::vector<T> wait(size_t count, std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> hold(lock);
        ready.wait_for(hold, timeout, [&] { return items.size() >= count; });
        return items;
    }

private:
    std::mutex lock;
    std::condition_variable ready;
    std::vector<T> items;
};

struct Read {
    bool closing;
    std::string bytes;
};

class RecordingChannel : public bas::IPCChannel {
public:
    ~RecordingChannel() override { stopAndJoin(); }
    void onReceive(bas::SocketRecord*, const char* data, size_t length) override {
        reads.put({data == nullptr, data ? std::string(data, length) : std::string()});
    }
    Inbox<Read> reads;
};

TEST(SocketChannel, HeartTestAloneIsSwallowedButNotWhenLongerOrGlued) {
    Peer peer;
    RecordingChannel channel;
    ASSERT_NE(channel.connect(peer.port), nullptr);
    peer.accept();
    const std::string heart(8, '\x16');
    peer.send(heart);
    std::this_thread::sleep_for(150ms);
    peer.send(heart + "\x16");
    std::this_thread::sleep_for(150ms);
    peer.send(heart + "data");
    auto reads = channel.reads.wait(2, 3s);
    ASSERT_EQ(reads.size(), 2u);
    EXPECT_EQ(reads[0].bytes, heart + "\x16");
    EXPECT_EQ(reads[1].bytes, heart + "data");
}

TEST(SocketChannel, ClosingIsDeliveredExactlyOnceAndSendFailsAfterwards) {
    Peer peer;
    RecordingChannel channel;
    bas::SocketRecord* record = channel.connect(peer.port);
    ASSERT_NE(record, nullptr);
    peer.accept();
    peer.send("hello");
    peer.hangUp();
    auto reads = channel.reads.wait(3, 1500ms);
    ASSERT_EQ(reads.size(), 2u);
    EXPECT_EQ(reads[0].bytes, "hello");
    EXPECT_TRUE(reads[1].closing);
    EXPECT_EQ(channel.socketCount(), 0u);
}

TEST(SocketChannel, ConnectToAClosedPortFailsAndReportsTheError) {
    int port = 0;
    {
        Peer closed;
        port = closed.port;
    }
    static std::string reported;
    RecordingChannel channel;
    channel.setEventCallback([](bas::ChannelEvent* event) {
        if (event->type == bas::kLogText) reported = event->text;
        return 0;
    });
    EXPECT_EQ(channel.connect(port), nullptr);
    EXPECT_EQ(reported.rfind("connect error: ", 0), 0u) << reported;
}

TEST(SocketChannel, FreePortComesBackInNetworkByteOrder) {
    int port = bas::IPCChannel::freePort();
    ASSERT_GT(port, 0);
    // The channel swaps it once more when it listens, and the other side's
    // connect swaps it back: both ends meet on the same number.
    RecordingChannel listening;
    ASSERT_NE(listening.listen(port), nullptr);
    RecordingChannel connecting;
    ASSERT_NE(connecting.connect(port), nullptr);
}

// The heart thread's events, recorded by a plain callback.
Inbox<int32_t>* heartDue = nullptr;
int recordHeart(bas::ChannelEvent* event) {
    if (event->type == bas::kHeartDue && heartDue) heartDue->put(event->heartCount);
    return 0;
}

TEST(SocketChannel, IdleLinkGetsAHeartTestAndTrafficPostponesItOneRound) {
    Inbox<int32_t> due;
    heartDue = &due;
    {
        Peer peer;
        RecordingChannel channel;
        channel.setEventCallback(recordHeart);
        channel.setHeartRound(400ms);
        bas::SocketRecord* record = channel.connect(peer.port);
        ASSERT_NE(record, nullptr);
        peer.accept();
        // Traffic in the first round: the first test comes in round two.
        ASSERT_TRUE(channel.send(record, "x", 1));
        EXPECT_EQ(peer.receive(1s), "x");
        auto rounds = due.wait(1, 3s);
        ASSERT_FALSE(rounds.empty());
        EXPECT_EQ(rounds[0], 2);
        EXPECT_EQ(peer.receive(1s), std::string(8, '\x16'));
    }
    heartDue = nullptr;
}

TEST(SocketChannel, HeartTestIsNotSentWhenTheCallbackSaysSo) {
    Peer peer;
    RecordingChannel channel;
    channel.setEventCallback([](bas::ChannelEvent* event) { return event->type == bas::kHeartDue ? 1 : 0; });
    channel.setHeartRound(200ms);
    ASSERT_NE(channel.connect(peer.port), nullptr);
    peer.accept();
    EXPECT_EQ(peer.receive(700ms), "");
}

Inbox<IPCPacket1*>* packetInbox = nullptr;

TEST(PacketChannel, FramesAndTheClosingComeThroughTheQueueInOrder) {
    Inbox<IPCPacket1*> inbox;
    packetInbox = &inbox;
    Peer peer;
    {
        bas::IPCPacketChannel channel;
        channel.setPacketHandler([](IPCPacket1* packet) { packetInbox->put(packet); });
        ASSERT_NE(channel.connect(peer.port), nullptr);
        peer.accept();
        std::string frames;
        for (uint32_t command : {100u, 200u}) {
            std::string payload = "1";
            payload.push_back('\0');
            payload += "{}";
            payload.push_back('\0');
            bas::appendFrameHeader(frames, command, command, 0, payload.size());
            frames += payload;
        }
        peer.send(frames.substr(0, 20));
        std::this_thread::sleep_for(50ms);
        peer.send(frames.substr(20));
        std::this_thread::sleep_for(50ms);
        peer.hangUp();
        auto packets = inbox.wait(3, 3s);
        ASSERT_EQ(packets.size(), 3u);
        EXPECT_EQ(packets[0]->commandType, 100u);
        EXPECT_EQ(packets[1]->commandType, 200u);
        EXPECT_STREQ(reinterpret_cast<char*>(packets[1]->data) + 2, "{}");
        EXPECT_TRUE(bas::isClosingPacket(packets[2]));
        for (IPCPacket1* packet : packets) bas::freePacket(packet);
    }
    packetInbox = nullptr;
}

TEST(PacketChannel, TextPacketCarriesOnlySixteenBitsOfTextLengthAndItsTailBehind) {
    Peer peer;
    bas::IPCPacketChannel channel;
    channel.setPacketHandler([](IPCPacket1* packet) { bas::freePacket(packet); });
    bas::SocketRecord* record = channel.connect(peer.port);
    ASSERT_NE(record, nullptr);
    peer.accept();
    std::string text = "1";
    text.push_back('\0');
    text += "{}";
    text.push_back('\0');
    IPCPacket1 packet{};
    packet.taskId = 3;
    packet.commandType = 4;
    packet.packetStatus = 2;
    packet.socket = record;
    packet.data = reinterpret_cast<unsigned char*>(text.data());
    packet.length = (uint64_t{10} << 32) | (0x10000u + text.size());  // bit 16 set: lost on the wire
    const std::string tail = "0123456789";
    ASSERT_TRUE(channel.sendTextPacket(&packet, tail.data()));
    std::string got;
    for (int tries = 0; tries < 10 && got.size() < 36u + text.size() + tail.size(); ++tries) got += peer.receive(1s);
    ASSERT_EQ(got.size(), 36u + text.size() + tail.size());
    EXPECT_EQ(bas::framePayloadLength(got.data()), 10u + text.size());
    EXPECT_EQ(got.substr(36), text + tail);
}

}  // namespace
