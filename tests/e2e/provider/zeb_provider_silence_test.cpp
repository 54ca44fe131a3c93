// A device that stops answering on its lockdown link: every call that waits
// for it gives up after the provider's silence (5 s here), never after the
// library's own half minute per answer, and the device serves a new link
// once it speaks again.
#include <gtest/gtest.h>

#include <chrono>

#include "zeb_provider_world.h"

namespace {

using Clock = std::chrono::steady_clock;
// Well above the 5 s of silence allowed, well below the 30 s (60 s for a
// session's release) the library waits on its own.
constexpr auto kSoon = std::chrono::seconds(20);

class SilentDevice : public ::testing::Test {
protected:
    void SetUp() override {
        device = ProviderWorld::Get().Attach(ProviderWorld::Profile("iphone6s-ios9"), &udid);
        ASSERT_NE(device, nullptr);
    }
    void TearDown() override {
        if (!device) return;
        Stall(false);
        ProviderWorld::Get().Detach(udid, device);
    }

    // Connected and paired, with a running session when asked for.
    bool Open(bool withSession) {
        auto& md = ProviderWorld::Get().md();
        if (md.AMDeviceConnect(device) != 0) return false;
        if (!md.AMDeviceIsPaired(device)) md.AMDevicePair(device);
        return !withSession || (md.AMDeviceValidatePairing(device) == 0 && md.AMDeviceStartSession(device) == 0);
    }
    void Stall(bool on) {
        EXPECT_EQ(ProviderWorld::Get().sim.Control("stall " + udid + (on ? " on" : " off")), "ok");
    }
    // The device answers a fresh link with a value.
    void ServesAgain() {
        auto& md = ProviderWorld::Get().md();
        ASSERT_TRUE(Open(true));
        CFTypeRef name = md.AMDeviceCopyValue(device, nullptr, Key("DeviceName"));
        EXPECT_NE(name, nullptr);
        if (name) md.CFRelease(name);
        md.AMDeviceStopSession(device);
        md.AMDeviceDisconnect(device);
    }

    AMDeviceRef device = nullptr;
    std::string udid;
};

TEST_F(SilentDevice, ReleasingTheSessionEndsSoon) {
    auto& md = ProviderWorld::Get().md();
    ASSERT_TRUE(Open(true));
    Stall(true);
    auto started = Clock::now();
    EXPECT_EQ(md.AMDeviceStopSession(device), 0);
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    EXPECT_LT(Clock::now() - started, kSoon);
    Stall(false);
    ServesAgain();
}

TEST_F(SilentDevice, AValueRequestGivesUpAndTheLinkWithIt) {
    auto& md = ProviderWorld::Get().md();
    ASSERT_TRUE(Open(true));
    Stall(true);
    auto started = Clock::now();
    EXPECT_EQ(md.AMDeviceCopyValue(device, nullptr, Key("DeviceName")), nullptr);
    // The link is given up: what follows fails without waiting again.
    AMDServiceConnectionRef service = nullptr;
    EXPECT_NE(md.AMDeviceSecureStartService(device, Key("com.apple.afc"), nullptr, &service), 0);
    EXPECT_EQ(md.AMDeviceCopyValue(device, nullptr, Key("ProductVersion")), nullptr);
    md.AMDeviceStopSession(device);
    md.AMDeviceDisconnect(device);
    EXPECT_LT(Clock::now() - started, kSoon);
    Stall(false);
    ServesAgain();
}

TEST_F(SilentDevice, StartingASessionGivesUp) {
    auto& md = ProviderWorld::Get().md();
    ASSERT_TRUE(Open(false));
    Stall(true);
    auto started = Clock::now();
    EXPECT_NE(md.AMDeviceValidatePairing(device), 0);
    EXPECT_NE(md.AMDeviceStartSession(device), 0);
    md.AMDeviceDisconnect(device);
    EXPECT_LT(Clock::now() - started, kSoon);
    Stall(false);
    ServesAgain();
}

}  // namespace
