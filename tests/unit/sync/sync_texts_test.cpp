// The texts a session writes and the times it converts.
#include "zeb_bound_provider.h"
#include "zeb_contact_texts.h"
#include "zeb_sync_changes.h"
#include "zeb_sync_clock.h"
#include "zeb_sync_matchers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {

SyncClock clockWithBias(int32_t bias) {
    SyncClock clock;
    clock.year = 2024;
    clock.month = 3;
    clock.day = 9;
    clock.hour = 7;
    clock.minute = 41;
    clock.second = 5;
    clock.milliseconds = 27;
    clock.bias = bias;
    return clock;
}

// The anchor text of the start message, out of the decoded message.
std::string anchorOf(const SyncClock& clock) {
    const std::string text = zeb::syncStartText(contact::kAddTexts.start, clock);
    PlistVariant message = *zeb::syncMessageOf(DecodeXml(text));
    EXPECT_EQ(message.array().size(), 6u);
    EXPECT_EQ(message.array()[2].text(), "Contacts-Device-Anchor");
    EXPECT_EQ(message.array()[4].int64(), 106);
    return message.array()[3].text();
}

TEST(SyncStartMessage, AnchorKeepsTheFieldOrderAndPrintsTheZoneUnsigned) {
    EXPECT_EQ(anchorOf(clockWithBias(0)), "2024-03-09 07:27:05 +0000");
    EXPECT_EQ(anchorOf(clockWithBias(-480)), "2024-03-09 07:27:05 +0800");
    EXPECT_EQ(anchorOf(clockWithBias(300)), "2024-03-09 07:27:05 +429496729100");
    // Half-hour zones keep only their whole hours.
    EXPECT_EQ(anchorOf(clockWithBias(-330)), "2024-03-09 07:27:05 +0500");
}

TEST(SyncStartMessage, EveryWhitespaceFormDecodesToTheSameMessage) {
    const SyncClock clock = clockWithBias(-60);
    const std::string forms[] = {zeb::syncStartText(contact::kQueryTexts.start, clock),
                                 zeb::syncStartText(contact::kAddTexts.start, clock),
                                 zeb::syncStartText(contact::kGroupTexts.start, clock)};
    const PlistVariant first = *zeb::syncMessageOf(DecodeXml(forms[0]));
    for (const auto& text : forms) {
        const PlistVariant message = *zeb::syncMessageOf(DecodeXml(text));
        ASSERT_EQ(message.array().size(), first.array().size()) << text;
        for (size_t i = 0; i < first.array().size(); ++i) {
            EXPECT_EQ(message.array()[i].text(), first.array()[i].text());
            EXPECT_EQ(message.array()[i].int64(), first.array()[i].int64());
        }
    }
    const PlistVariant ping = *zeb::syncMessageOf(DecodeXml(contact::kRemoveTexts.ping));
    EXPECT_EQ(ping.array()[0].text(), "DLMessagePing");
    EXPECT_EQ(ping.array()[1].text(), "com.apple.Contacts");
}

class LocalZone : public ::testing::Test {
protected:
    void SetUp() override {
        const char* zone = getenv("TZ");
        saved_ = zone ? zone : "";
        hadZone_ = zone != nullptr;
    }
    void TearDown() override {
        if (hadZone_)
            setenv("TZ", saved_.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    void useZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    std::string saved_;
    bool hadZone_ = false;
};

TEST_F(LocalZone, DeviceUtcTextsBecomeLocalTime) {
    std::string local;
    useZone("Asia/Shanghai");
    ASSERT_TRUE(zeb::deviceDateToLocal("2020-01-02T03:04:05Z", local));
    EXPECT_EQ(local, "2020-01-02 11:04:05");
    useZone("America/New_York");
    ASSERT_TRUE(zeb::deviceDateToLocal("2020-01-02T03:04:05Z", local));
    EXPECT_EQ(local, "2020-01-01 22:04:05");
    // Summer time counts at the moment itself, not at the time of the call.
    ASSERT_TRUE(zeb::deviceDateToLocal("2020-07-01T12:00:00Z", local));
    EXPECT_EQ(local, "2020-07-01 08:00:00");

    for (const char* other : {"2020-01-02T03:04:05Zx", " 2020-01-02T03:04:05Z", "2020-01-02 03:04:05Z",
                              "2020-1-02T03:04:05Z", "20a0-01-02T03:04:05Z", ""})
        EXPECT_FALSE(zeb::deviceDateToLocal(other, local)) << other;
}

TEST(SyncChanges, ProposedIdIsAPatternAndTheDeviceIdIsLiteral) {
    const std::string text = "<key>A.1</key><array><string>A.1</string><string>AB1</string></array>";
    // "." matches any character, as a pattern does.
    EXPECT_EQ(zeb::replaceProposedId(text, "A.1", "77"),
              "<key>77</key><array><string>77</string><string>77</string></array>");
    EXPECT_EQ(zeb::replaceProposedId("x(y x(y", "x(y", "5"), "5 5");  // no valid pattern: replaced as text
    EXPECT_EQ(zeb::replaceProposedId("id id", "id", "$1&"), "$1& $1&");
}

TEST(SyncChanges, RecordEditEscapesWhatItAdds) {
    zeb::SyncRecordEdit edit(zeb::fillTemplate(contact::kGroupTemplate, "g<1>"));
    ASSERT_TRUE(edit.ok());
    edit.addString("name", "Tom & Jerry <\"Fans\"> Zoë");
    edit.addStringArray("members", {"1", "a&b"});
    const PlistVariant message = *zeb::syncMessageOf(DecodeXml(edit.print()));
    const PlistVariant* record = message.array()[2].Find("Group/g<1>");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->Find("name")->text(), "Tom & Jerry <\"Fans\"> Zoë");
    EXPECT_EQ(record->Find("com.apple.syncservices.RecordEntityName")->text(), "com.apple.contacts.Group");
    ASSERT_EQ(record->Find("members")->array().size(), 2u);
    EXPECT_EQ(record->Find("members")->array()[1].text(), "a&b");
    EXPECT_TRUE(message.array()[3].boolean());
    EXPECT_FALSE(zeb::SyncRecordEdit("<plist><array>").ok());
}

TEST(SyncChanges, IdMapTakesStringEntriesOfEveryDictionary) {
    zeb::SyncIdMap map;
    zeb::collectIdMap(*zeb::syncMessageOf(DecodeXml(Plist(
                          "<array><string>SDMessageRemapRecordIdentifiers</string><string>com.apple.Contacts</string>"
                          "<dict><key>B</key><string>2</string><key>n</key><integer>3</integer></dict>"
                          "<dict><key>A</key><string>1</string></dict></array>"))),
                      map);
    EXPECT_EQ(map, (zeb::SyncIdMap{{"A", "1"}, {"B", "2"}}));
}

}  // namespace
