// The reply handler on frames as a device sends them.
#include "zeb_app_reply.h"
#include "zeb_bound_provider.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

struct Sent {
    int64_t stage, code, type;
    uint16_t packetStatus;
    std::string info, tail;
};
std::vector<Sent> sent;

void capture(const EventEnvelope& envelope, IPCPacket1* frame) {
    sent.push_back({envelope.stage, envelope.code, envelope.type, frame->packetStatus,
                    envelope.info ? envelope.info : "<none>",
                    std::string(static_cast<const char*>(envelope.tail), envelope.tailLength)});
}

// Feeds one XML frame; whether the handler waits for more.
bool feed(AppReplyContext& reply, const std::string& body) {
    const std::string xml = Plist(body);
    bool keepWaiting = false;
    uint8_t result = 9;
    AppReplyHandler(&reply, reinterpret_cast<const uint8_t*>(xml.data()), static_cast<uint32_t>(xml.size()),
                    &keepWaiting, &result);
    EXPECT_EQ(result, 0);
    return keepWaiting;
}

class AppReply : public ::testing::Test {
protected:
    void SetUp() override {
        BoundProvider();
        sent.clear();
        command.taskId = 77;
        command.commandType = 505;
        reply.command = &command;
        reply.udid = "UDID-1";
        reply.sink = capture;
    }
    IPCPacket1 command{};
    AppReplyContext reply;
};

const char kMetadataBase64[] =  // <dict><key>artistName</key><string>Maker</string><key>bundleVersion</key><string>9</string></dict>
    "PD94bWwgdmVyc2lvbj0iMS4wIiBlbmNvZGluZz0iVVRGLTgiPz4KPHBsaXN0IHZlcnNpb249IjEuMCI+PGRpY3Q+PGtleT5hcnRp\n"
    "c3ROYW1lPC9rZXk+PHN0cmluZz5NYWtlcjwvc3RyaW5nPjxrZXk+YnVuZGxlVmVyc2lvbjwva2V5PjxzdHJpbmc+OTwvc3RyaW5n\n"
    "PjwvZGljdD48L3BsaXN0Pg==";

}  // namespace

TEST_F(AppReply, BrowsePagesFillAppsAndSizesOnlyForAppsOfTheFirstPass) {
    reply.mode = kAppBrowseAttributes;
    EXPECT_TRUE(feed(reply, std::string("<dict><key>Status</key><string>BrowsingApplications</string>"
                                        "<key>CurrentList</key><array>"
                                        "<dict><key>CFBundleIdentifier</key><string>com.example.one</string>"
                                        "<key>ApplicationType</key><string>User</string>"
                                        "<key>CFBundleName</key><string>One</string>"
                                        "<key>iTunesMetadata</key><data>") +
                                kMetadataBase64 +
                                "</data></dict>"
                                "<dict><key>CFBundleName</key><string>No identifier</string></dict>"
                                "<dict><key>CFBundleIdentifier</key><string>com.example.two</string></dict>"
                                "</array></dict>"));
    // A repeated identifier replaces the first object, in its place.
    EXPECT_TRUE(feed(reply, "<dict><key>CurrentList</key><array>"
                            "<dict><key>CFBundleIdentifier</key><string>com.example.two</string>"
                            "<key>CFBundleName</key><string>Two again</string></dict></array></dict>"));
    EXPECT_FALSE(feed(reply, "<dict><key>Status</key><string>Complete</string></dict>"));
    ASSERT_EQ(reply.apps.MemberCount(), 2u);
    EXPECT_STREQ(reply.apps.MemberBegin()->name.GetString(), "com.example.one");
    EXPECT_STREQ(reply.apps["com.example.two"]["CFBundleName"].GetString(), "Two again");
    const auto& one = reply.apps["com.example.one"];
    EXPECT_STREQ(one["CFBundleName"].GetString(), "One");
    EXPECT_STREQ(one["artistName"].GetString(), "Maker");
    EXPECT_STREQ(one["CFBundleVersion"].GetString(), "9");
    EXPECT_STREQ(reply.apps["com.example.two"]["ApplicationType"].GetString(), "");

    reply.mode = kAppBrowseDiskUsage;
    EXPECT_TRUE(feed(reply, "<dict><key>CurrentList</key><array>"
                            "<dict><key>CFBundleIdentifier</key><string>com.example.one</string>"
                            "<key>DynamicDiskUsage</key><integer>100</integer>"
                            "<key>StaticDiskUsage</key><integer>9000000000</integer></dict>"
                            "<dict><key>CFBundleIdentifier</key><string>com.example.two</string></dict>"
                            "<dict><key>CFBundleIdentifier</key><string>com.example.late</string>"
                            "<key>DynamicDiskUsage</key><integer>5</integer></dict>"
                            "</array></dict>"));
    EXPECT_EQ(reply.apps["com.example.one"]["data-size"].GetInt64(), 100);
    EXPECT_EQ(reply.apps["com.example.one"]["app-size"].GetInt64(), 9000000000);
    EXPECT_FALSE(reply.apps["com.example.two"].HasMember("data-size"));
    EXPECT_STREQ(reply.apps["com.example.two"]["CFBundleName"].GetString(), "Two again");
    EXPECT_FALSE(reply.apps.HasMember("com.example.late"));
    // An error answer ends a browse instead of waiting for a "Complete".
    EXPECT_FALSE(feed(reply, "<dict><key>Error</key><string>APIInternalError</string></dict>"));
    EXPECT_TRUE(sent.empty());
}

TEST_F(AppReply, ProgressStepsThenTheVerdictByMode) {
    reply.mode = kAppUninstall;
    reply.bundle_id = "com.example.\"q\"";
    EXPECT_TRUE(feed(reply, "<dict><key>PercentComplete</key><integer>40</integer>"
                            "<key>Status</key><string>RemovingApplication</string></dict>"));
    EXPECT_FALSE(feed(reply, "<dict><key>Status</key><string>Complete</string></dict>"));
    reply.mode = kAppArchive;
    EXPECT_FALSE(feed(reply, "<dict><key>Error</key><string>AlreadyArchived</string></dict>"));
    reply.mode = kAppInstall;
    // A frame without a dictionary is passed over.
    EXPECT_TRUE(feed(reply, "<array><string>noise</string></array>"));
    EXPECT_FALSE(feed(reply, "<dict><key>Status</key><string>Complete</string></dict>"));

    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(sent[0].code, 40);
    EXPECT_EQ(sent[0].packetStatus, 2);
    EXPECT_EQ(sent[0].stage, 0);
    EXPECT_EQ(sent[0].info, "\"com.example.\\\"q\\\"\"");
    EXPECT_EQ(sent[1].code, 0);
    EXPECT_EQ(sent[1].packetStatus, 2);
    EXPECT_EQ(sent[2].packetStatus, 6);
    EXPECT_EQ(sent[2].info, "<none>");
    EXPECT_EQ(sent[3].stage, 2);
    EXPECT_EQ(sent[3].packetStatus, 2);
}

TEST_F(AppReply, IconAnswersSendThePngOrNothingAndStop) {
    reply.mode = kAppIconToParent;
    reply.bundle_id = "com.example.one";
    EXPECT_FALSE(feed(reply, "<dict><key>pngData</key><data>iVBORw0KGgo=</data></dict>"));
    EXPECT_FALSE(feed(reply, "<dict><key>other</key><string>x</string></dict>"));
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].type, 1);
    EXPECT_EQ(sent[0].tail, std::string("\x89PNG\r\n\x1a\n", 8));
    EXPECT_EQ(sent[0].info, "{\"bundle_id\":\"com.example.one\"}");
}
