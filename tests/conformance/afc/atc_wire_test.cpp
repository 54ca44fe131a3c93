// AirTraffic as the worker meets it: silence until PowerAssertion, then
// what the profile's mode says.
#include "plist_frames.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace wiretest;

namespace {

std::string profileXml(const std::string& mode, const std::string& extra = "") {
    return "<plist version=\"1.0\"><dict><key>AirTraffic</key><dict><key>Mode</key><string>" + mode +
           "</string>" + extra +
           "<key>AssetMetrics</key><dict><key>_FreeSize</key><integer>123456</integer>"
           "<key>Media</key><dict><key>_Count</key><integer>7</integer></dict></dict>"
           "</dict></dict></plist>";
}

class AirTrafficWire : public ::testing::Test {
protected:
    void start(const std::string& xml) {
        profile = dictFromXml(xml);
        ctx.profile = profile;
        run = std::make_unique<ServiceRun>("com.apple.atc", ctx);
    }
    void TearDown() override {
        run.reset();
        plist_free(profile);
    }
    void command(const char* name) {
        plist_t m = plist_new_dict();
        plist_dict_set_item(m, "Command", plist_new_string(name));
        plist_dict_set_item(m, "Session", plist_new_uint(0));
        plist_t params = plist_new_dict();
        plist_dict_set_item(params, "Enabled", plist_new_bool(1));
        plist_dict_set_item(m, "Params", params);
        ASSERT_TRUE(sendPlist(*run, m, Endian::Little, true));
        plist_free(m);
    }
    std::string nextCommand(plist_t* keep = nullptr, int timeoutMs = 3000) {
        bool binary = false;
        plist_t m = receivePlist(*run, Endian::Little, timeoutMs, &binary);
        if (!m) return "<none>";
        EXPECT_TRUE(binary);
        std::string c = stringAt(m, "Command");
        if (keep)
            *keep = m;
        else
            plist_free(m);
        return c;
    }

    zsim::ServiceContext ctx;
    plist_t profile = nullptr;
    std::unique_ptr<ServiceRun> run;
};

TEST_F(AirTrafficWire, MetricsFollowThePowerAssertion) {
    start(profileXml("metrics"));
    command("HostInfo");
    EXPECT_EQ(nextCommand(nullptr, 300), "<none>");  // nothing before PowerAssertion
    command("PowerAssertion");
    plist_t m = nullptr;
    ASSERT_EQ(nextCommand(&m), "AssetMetrics");  // the metrics come first
    plist_t params = plist_dict_get_item(m, "Params");
    EXPECT_EQ(uintAt(params, "_FreeSize"), 123456u);
    EXPECT_EQ(uintAt(plist_dict_get_item(params, "Media"), "_Count"), 7u);
    plist_free(m);
    EXPECT_EQ(nextCommand(), "Ping");
    command("RequestingSync");
    EXPECT_EQ(nextCommand(), "SyncFailed");
    run->closeHost();
}

TEST_F(AirTrafficWire, PingModeKeepsPingingUntilTheHostLeaves) {
    start(profileXml("ping", "<key>PingInterval</key><real>0.05</real>"));
    command("PowerAssertion");
    for (int i = 0; i < 4; ++i) EXPECT_EQ(nextCommand(), "Ping");
    run->closeHost();
    for (int i = 0; i < 100 && !run->handlerFinished(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(run->handlerFinished());
}

TEST_F(AirTrafficWire, IdleExitEndsTheConnection) {
    start(profileXml("idleexit"));
    command("PowerAssertion");
    EXPECT_EQ(nextCommand(), "IdleExit");
    EXPECT_TRUE(run->peerClosed());
}

TEST_F(AirTrafficWire, AProfileWithoutAirTrafficStillAnswers) {
    start("<plist version=\"1.0\"><dict/></plist>");
    command("PowerAssertion");
    plist_t m = nullptr;
    ASSERT_EQ(nextCommand(&m), "AssetMetrics");
    EXPECT_EQ(plist_get_node_type(plist_dict_get_item(m, "Params")), PLIST_DICT);
    plist_free(m);
}

}  // namespace
