#include <gtest/gtest.h>

#include "zeb_provider_world.h"

namespace {

TEST(ProviderNotifications, AttachDetachAndInterfaceTypes) {
    auto& world = ProviderWorld::Get();
    auto& md = world.md();
    EXPECT_EQ(md.AMDeviceGetInterfaceType(world.trustedIphone), kZebInterfaceUSB);

    std::string udid;
    AMDeviceRef network = world.Attach(ProviderWorld::Profile("iphone12-ios16-network"), &udid);
    ASSERT_NE(network, nullptr);
    EXPECT_NE(network, world.trustedIphone);
    EXPECT_EQ(md.AMDeviceGetInterfaceType(network), kZebInterfaceNetwork);

    ASSERT_TRUE(world.Detach(udid, network));
    // The gone device still answers its interface type (the detach record is
    // checked with it), but refuses everything else.
    EXPECT_EQ(md.AMDeviceGetInterfaceType(network), kZebInterfaceNetwork);
    EXPECT_NE(md.AMDeviceConnect(network), 0);
    EXPECT_EQ(md.AMDeviceCopyValue(network, nullptr, Key("DeviceName")), nullptr);

    // Plugged in again, it is a new device with a new handle.
    AMDeviceRef again = world.Attach(udid);
    ASSERT_NE(again, nullptr);
    EXPECT_NE(again, network);
    ASSERT_TRUE(world.Detach(udid, again));
}

TEST(ProviderNotifications, UntrustedDeviceRefusedThenTrusted) {
    auto& world = ProviderWorld::Get();
    auto& md = world.md();
    std::string udid;
    AMDeviceRef device = world.Attach(ProviderWorld::Profile("iphone11-ios16-untrusted"), &udid);
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(md.AMDeviceGetInterfaceType(device), kZebInterfaceUSB);

    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_EQ(md.AMDeviceIsPaired(device), 0);
    EXPECT_NE(md.AMDeviceStartSession(device), 0) << "no session without a pair record";

    // A refused question gets no answer record and leaves the device unpaired.
    size_t before = world.EventCount();
    md.AMDevicePair(device);  // raises the trust question on the device
    EXPECT_EQ(world.sim.Control("refuse " + udid), "ok");
    EXPECT_EQ(world.WaitFor(kZebDeviceTrustAnswered, before, device, 3000).device, nullptr);
    EXPECT_EQ(md.AMDeviceIsPaired(device), 0);

    // Asked again, nothing is answered until the user taps "Trust".
    before = world.EventCount();
    md.AMDevicePair(device);
    EXPECT_EQ(world.WaitFor(kZebDeviceTrustAnswered, before, device, 1500).device, nullptr);
    EXPECT_EQ(world.sim.Control("trust " + udid), "ok");
    EXPECT_EQ(world.WaitFor(kZebDeviceTrustAnswered, before, device).device, device);

    EXPECT_NE(md.AMDeviceIsPaired(device), 0);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), 0);
    ASSERT_EQ(md.AMDeviceStartSession(device), 0);
    CFTypeRef id = md.AMDeviceCopyValue(device, nullptr, Key("UniqueDeviceID"));
    EXPECT_EQ(TextOf(id), udid);
    md.CFRelease(id);
    md.AMDeviceStopSession(device);
    md.AMDeviceDisconnect(device);
    ASSERT_TRUE(world.Detach(udid, device));
}

}  // namespace
