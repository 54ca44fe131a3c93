// The diagnostics relay against a profile, as idevicediagnostics and the
// worker ask it.
#include "plist_frames.h"

#include <gtest/gtest.h>

using namespace wiretest;

namespace {

const char* kProfile = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
  <key>IORegistry</key><dict>
    <key>IOPMPowerSource</key><dict>
      <key>IORegistryEntryName</key><string>AppleSmartBattery</string>
      <key>CycleCount</key><integer>187</integer>
      <key>DesignCapacity</key><integer>3227</integer>
      <key>AppleRawMaxCapacity</key><integer>3076</integer>
      <key>IsCharging</key><true/>
    </dict>
  </dict>
  <key>Values</key><dict>
    <key>ProductVersion</key><string>16.6</string>
    <key>ProductType</key><string>iPhone14,5</string>
  </dict>
  <key>Trust</key><string>password</string>
</dict></plist>)";

class DiagnosticsWire : public ::testing::Test {
protected:
    void SetUp() override {
        profile = dictFromXml(kProfile);
        ASSERT_NE(profile, nullptr);
        ctx.profile = profile;
        run = std::make_unique<ServiceRun>("com.apple.mobile.diagnostics_relay", ctx);
    }
    void TearDown() override {
        run.reset();
        plist_free(profile);
    }

    plist_t ask(const std::string& requestXml, bool binary = false, bool* answeredBinary = nullptr) {
        plist_t request = dictFromXml(requestXml);
        EXPECT_TRUE(sendPlist(*run, request, Endian::Big, binary));
        plist_free(request);
        plist_t answer = receivePlist(*run, Endian::Big, 3000, answeredBinary);
        answers.emplace_back(answer, plist_free);
        return answer;
    }

    static plist_t path(plist_t dict, std::initializer_list<const char*> keys) {
        for (const char* k : keys) dict = dict ? plist_dict_get_item(dict, k) : nullptr;
        return dict;
    }

    zsim::ServiceContext ctx;
    plist_t profile = nullptr;
    std::unique_ptr<ServiceRun> run;
    std::vector<std::unique_ptr<void, void (*)(plist_t)>> answers;
};

std::string req(const std::string& body) {
    return "<plist version=\"1.0\"><dict>" + body + "</dict></plist>";
}

TEST_F(DiagnosticsWire, RegistryEntriesByClassNameOrEntryName) {
    // What `idevicediagnostics ioregentry IOPMPowerSource` sends.
    plist_t a = ask(req("<key>EntryName</key><string>IOPMPowerSource</string><key>EntryClass</key><string></string>"
                        "<key>Request</key><string>IORegistry</string>"));
    EXPECT_EQ(stringAt(a, "Status"), "Success");
    plist_t entry = path(a, {"Diagnostics", "IORegistry"});
    EXPECT_EQ(uintAt(entry, "CycleCount"), 187u);
    EXPECT_EQ(plist_dict_get_item(entry, "IORegistryEntryName"), nullptr);

    a = ask(req("<key>EntryClass</key><string>IOPMPowerSource</string><key>Request</key><string>IORegistry</string>"));
    EXPECT_EQ(uintAt(path(a, {"Diagnostics", "IORegistry"}), "DesignCapacity"), 3227u);
    a = ask(req("<key>EntryName</key><string>AppleSmartBattery</string><key>Request</key><string>IORegistry</string>"));
    EXPECT_EQ(uintAt(path(a, {"Diagnostics", "IORegistry"}), "CycleCount"), 187u);

    // Unknown entries and planes: success with nothing in it.
    for (const char* body : {"<key>EntryClass</key><string>NoSuchClass</string>",
                             "<key>CurrentPlane</key><string>IODeviceTree</string>"}) {
        a = ask(req(std::string(body) + "<key>Request</key><string>IORegistry</string>"));
        EXPECT_EQ(stringAt(a, "Status"), "Success");
        plist_t reg = path(a, {"Diagnostics", "IORegistry"});
        ASSERT_NE(reg, nullptr);
        EXPECT_EQ(plist_dict_get_size(reg), 0u);
    }
}

TEST_F(DiagnosticsWire, AnswersInTheHostsFormAndSummarisesTheBattery) {
    bool binary = false;
    plist_t a = ask(req("<key>Request</key><string>All</string>"), true, &binary);
    EXPECT_TRUE(binary);
    plist_t gauge = path(a, {"Diagnostics", "GasGauge"});
    EXPECT_EQ(uintAt(gauge, "CycleCount"), 187u);
    EXPECT_EQ(uintAt(gauge, "FullChargeCapacity"), 3076u);
    EXPECT_NE(path(a, {"Diagnostics", "WiFi"}), nullptr);
    EXPECT_NE(path(a, {"Diagnostics", "NAND"}), nullptr);

    a = ask(req("<key>Request</key><string>MobileGestalt</string><key>MobileGestaltKeys</key>"
                "<array><string>ProductType</string><string>PasswordConfigured</string><string>Nope</string></array>"),
            false, &binary);
    EXPECT_FALSE(binary);
    plist_t mg = path(a, {"Diagnostics", "MobileGestalt"});
    EXPECT_EQ(stringAt(mg, "ProductType"), "iPhone14,5");
    uint8_t locked = 0;
    ASSERT_NE(plist_dict_get_item(mg, "PasswordConfigured"), nullptr);
    plist_get_bool_val(plist_dict_get_item(mg, "PasswordConfigured"), &locked);
    EXPECT_TRUE(locked);
    EXPECT_EQ(plist_dict_get_item(mg, "Nope"), nullptr);

    a = ask(req("<key>Request</key><string>Teleport</string>"));
    EXPECT_EQ(stringAt(a, "Status"), "UnknownRequest");
}

TEST_F(DiagnosticsWire, GoodbyeIsAnsweredThenTheDeviceHangsUp) {
    plist_t a = ask(req("<key>Request</key><string>Goodbye</string>"));
    EXPECT_EQ(stringAt(a, "Status"), "Success");
    EXPECT_TRUE(run->peerClosed());
}

TEST_F(DiagnosticsWire, GarbageFramesAreDropped) {
    const unsigned char huge[4] = {0x7f, 0xff, 0xff, 0xff};
    ASSERT_TRUE(run->sendAll(huge, 4));
    EXPECT_TRUE(run->peerClosed());
}

}  // namespace
