// The hub against a parent-side reader: what sendEvent writes is what a
// parent reads, and commands after quitting never reach the pool.
#include "zeb_client.h"
#include "zeb_module.h"
#include "zeb_parent_link.h"
#include "zeb_quit.h"
#include "zeb_settings.h"
#include "zeb_thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

using namespace std::chrono_literals;

namespace {

class Hub : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        parent = new zparent::ParentLink;
        ASSERT_TRUE(parent->listen());
        zeb::Settings settings;
        settings.parentPort = parent->port();
        zeb::setSettings(settings);
        pool = new BASThreadPool;
        pool->start();
        BASThreadPool::setInstance(pool);
        ASSERT_TRUE(ZEBClient::instance()->connectToParent());
        ASSERT_TRUE(parent->acceptWorker(2s));
    }
    static zparent::ParentLink* parent;
    static BASThreadPool* pool;
};
zparent::ParentLink* Hub::parent = nullptr;
BASThreadPool* Hub::pool = nullptr;

TEST_F(Hub, EventWithCompressedTailReachesTheParentIntact) {
    const std::string tail = "{\"Records\":[" + std::string(3000, ' ') + "]}";
    EventEnvelope envelope;
    envelope.stage = 1;
    envelope.uuid = "0000-UDID";
    envelope.info = "{\"Count\":1}";
    envelope.tail = tail.data();
    envelope.tailLength = tail.size();
    IPCPacket1 frame{};
    frame.taskId = 77;
    frame.commandType = 100;
    frame.packetStatus = 2;
    ASSERT_EQ(ZEBClient::instance()->sendEvent(envelope, &frame), 0);

    auto event = parent->nextEvent(2s);
    ASSERT_TRUE(event.has_value());
    EXPECT_EQ(event->frame.taskId, 77u);
    EXPECT_EQ(event->frame.commandType, 100u);
    EXPECT_EQ(event->frame.packetStatus, 2);
    EXPECT_EQ(event->version, "1");
    EXPECT_EQ(event->stage, 1);
    EXPECT_EQ(event->uuid, "0000-UDID");
    EXPECT_EQ(event->info, "{\"Count\":1}");
    EXPECT_FALSE(event->tailBroken);
    EXPECT_EQ(event->tail, tail);
}

TEST_F(Hub, RawTailIsHandedOverUntouched) {
    std::string icon(70000, '\0');
    for (size_t i = 0; i < icon.size(); ++i) icon[i] = static_cast<char>(i * 31);
    EventEnvelope envelope;
    envelope.type = 1;
    envelope.tail = icon.data();
    envelope.tailLength = icon.size();
    IPCPacket1 frame{};
    frame.commandType = 505;
    frame.packetStatus = 2;
    ASSERT_EQ(ZEBClient::instance()->sendEvent(envelope, &frame), 0);
    auto event = parent->nextEvent(2s);
    ASSERT_TRUE(event.has_value());
    EXPECT_EQ(event->type, 1);
    EXPECT_EQ(event->tail, icon);
}

TEST_F(Hub, ReportDerivesThePacketStatusFromTheCode) {
    ZEBModule module;
    IPCPacket1 command{};
    command.taskId = 5;
    command.commandType = 300;
    const std::pair<int64_t, uint16_t> cases[] = {{0, 1}, {6, 5}, {7, 6}, {21, 6}};
    for (auto [code, status] : cases) {
        module.report(&command, "dev", code, nullptr);
        auto event = parent->nextEvent(2s);
        ASSERT_TRUE(event.has_value());
        EXPECT_EQ(event->frame.packetStatus, status) << "code " << code;
        EXPECT_EQ(event->code, code);
        EXPECT_EQ(event->stage, 0);
        EXPECT_FALSE(event->hasInfo);
        EXPECT_TRUE(zparent::isFinalReport(*event));
    }
}

// Quitting and a lost parent can't be undone; CTest runs each test in a
// process of its own.
TEST_F(Hub, AfterQuittingCommandsNeverReachThePool) {
    BASThreadPool idle(0);  // never started: queued tasks stay countable
    BASThreadPool::setInstance(&idle);
    ZEBClient::onCommandPacket(bas::allocPacket(nullptr));
    EXPECT_EQ(idle.queuedTasks(), 1u);
    zeb::postQuit();
    ZEBClient::onCommandPacket(bas::allocPacket(nullptr));
    EXPECT_EQ(idle.queuedTasks(), 1u);
    BASThreadPool::setInstance(pool);
}

TEST_F(Hub, OnceTheParentHasGoneSendEventReturnsMinusOne) {
    parent->closeConnection();
    EventEnvelope envelope;
    IPCPacket1 frame{};
    int result = 0;
    for (int spin = 0; spin < 300 && result == 0; ++spin) {
        result = ZEBClient::instance()->sendEvent(envelope, &frame);
        if (result == 0) std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(result, -1);
}

}  // namespace
