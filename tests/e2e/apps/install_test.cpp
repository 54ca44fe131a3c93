// Command 504: local packages announced, staged over AFC and installed,
// as the stock tool then sees them.
#include "app_fixture.h"
#include "icon_server.h"

#include <filesystem>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

const std::string kIconBytes = std::string("\x89PNG\r\n\x1a\n", 8) + std::string(300, '\x42');

std::vector<zparent::Event> ofStage(const std::vector<zparent::Event>& events, int64_t stage, int64_t type = -1) {
    std::vector<zparent::Event> out;
    for (const auto& e : events)
        if (!isAppReport(e) && e.stage == stage && (type < 0 || e.type == type)) out.push_back(e);
    return out;
}

}  // namespace

TEST_F(AppCommands, InstallAnnouncesStagesAndInstallsWhatTheStockToolThenLists) {
    start(e2e::profileDir(kNoApps), kNoAppsUdid);
    IconServer icons("/icon57.png", kIconBytes);
    const std::string ipa =
        makeIpa("hello.ipa", "--id com.zebrelo.e2e.hello --name Hello --version 12 --short 1.2 --icon-url " + icons.url());
    auto events = run(504, jsonArray({ipa}));
    ASSERT_GE(events.size(), 4u);
    EXPECT_EQ(events.back().code, 0);

    const auto& announced = events[0];
    EXPECT_EQ(announced.stage, 0);
    EXPECT_EQ(announced.type, 0);
    EXPECT_EQ(announced.frame.packetStatus, 2);
    auto metadata = parseJson(announced.tail);
    ASSERT_TRUE(metadata.IsObject()) << announced.tail;
    EXPECT_STREQ(metadata["CFBundleIdentifier"].GetString(), "com.zebrelo.e2e.hello");
    EXPECT_STREQ(metadata["CFBundleVersion"].GetString(), "12");
    EXPECT_STREQ(metadata["CFBundleShortVersionString"].GetString(), "1.2");
    EXPECT_STREQ(metadata["CFBundleDisplayName"].GetString(), "Hello");
    EXPECT_STREQ(metadata["artistName"].GetString(), "Zebrelo Test Makers");

    const auto& icon = events[1];
    EXPECT_EQ(icon.stage, 1);
    EXPECT_EQ(icon.type, 1);
    EXPECT_EQ(icon.tail, kIconBytes);
    EXPECT_EQ(icons.hits(), 1);

    auto progress = ofStage(events, 2);
    ASSERT_GE(progress.size(), 2u);
    for (size_t i = 0; i + 1 < progress.size(); ++i) {
        EXPECT_EQ(progress[i].frame.packetStatus, 2);
        if (i > 0) EXPECT_GE(progress[i].code, progress[i - 1].code);
    }
    EXPECT_GT(progress[progress.size() - 2].code, 50);
    EXPECT_EQ(progress.back().frame.packetStatus, 2);
    EXPECT_EQ(progress.back().code, 0);
    EXPECT_EQ(progress.back().frame.taskId, events.back().frame.taskId);

    auto listed = run(501, std::nullopt);
    ASSERT_EQ(listed.size(), 3u);
    auto group = parseJson(listed[1].tail);
    ASSERT_TRUE(group.HasMember("com.zebrelo.e2e.hello"));
    EXPECT_STREQ(group["com.zebrelo.e2e.hello"]["CFBundleVersion"].GetString(), "12");
    const std::string stock = stockTool("-l");
    EXPECT_NE(stock.find("com.zebrelo.e2e.hello"), std::string::npos) << stock;
}

TEST_F(AppCommands, InstallPassesOverPackagesItCannotUseAndGoesOn) {
    start(e2e::profileDir(kNoApps), kNoAppsUdid);
    IconServer icons("/icon57.png", kIconBytes);
    const std::string notZip = scratch() + "/plain.ipa";
    std::ofstream(notZip) << "this is not a zip archive";
    const std::string noMetadata = makeIpa("bare.ipa", "--id com.zebrelo.e2e.bare --no-metadata");
    const std::string rejected =
        makeIpa("rejected.ipa", "--id com.zebrelo.e2e.rejected --no-bundle-version --icon-url " + icons.url());
    const std::string noIcon = makeIpa(
        "noicon.ipa", "--id com.zebrelo.e2e.noicon --icon-url http://127.0.0.1:" + std::to_string(icons.port()) + "/none.png");
    const std::string escaped = makeIpa("escaped.ipa", "--id 'com.zebrelo.e2e.a&b<c' --icon-url " + icons.url());

    auto events = run(504, jsonArray({scratch() + "/missing.ipa", notZip, noMetadata, rejected, noIcon, escaped}));
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back().code, 0);

    // Only the three packages with metadata are announced, in order.
    auto announced = ofStage(events, 0, 0);
    ASSERT_EQ(announced.size(), 3u);
    const char* expected[] = {"com.zebrelo.e2e.rejected", "com.zebrelo.e2e.noicon", "com.zebrelo.e2e.a&b<c"};
    for (size_t i = 0; i < 3; ++i)
        EXPECT_STREQ(parseJson(announced[i].tail)["CFBundleIdentifier"].GetString(), expected[i]);
    // The icon that is not served gives no icon event.
    EXPECT_EQ(ofStage(events, 1, 1).size(), 2u);

    // Each announced package ends its progress with its own verdict: the
    // last stage 2 event before the next announcement.
    std::vector<uint16_t> verdicts;
    for (const auto& e : events) {
        if (isAppReport(e)) break;
        if (e.stage == 0 && e.type == 0) verdicts.push_back(0);
        if (e.stage == 2 && !verdicts.empty()) verdicts.back() = e.frame.packetStatus;
    }
    EXPECT_EQ(verdicts, (std::vector<uint16_t>{6, 2, 2}));

    const std::string stock = stockTool("-l");
    EXPECT_EQ(stock.find("com.zebrelo.e2e.rejected"), std::string::npos) << stock;
    EXPECT_EQ(stock.find("com.zebrelo.e2e.bare"), std::string::npos) << stock;
    EXPECT_NE(stock.find("com.zebrelo.e2e.noicon"), std::string::npos) << stock;
    EXPECT_NE(stock.find("com.zebrelo.e2e.a&b<c"), std::string::npos) << stock;
}

TEST_F(AppCommands, InstallFaultsEndWithTheirCodes) {
    start(e2e::profileDir(kNoApps), kNoAppsUdid);
    const std::string ipa = makeIpa("x.ipa", "--id com.zebrelo.e2e.x --icon-url http://127.0.0.1:1/x.png");
    auto badTail = run(504, std::string("\"" + ipa + "\""));
    ASSERT_EQ(badTail.size(), 1u);
    EXPECT_EQ(badTail[0].code, 8);

    ASSERT_EQ(sim->control("refuse-service " + udid + " com.apple.afc on"), "ok");
    auto noAfc = run(504, jsonArray({ipa}));
    ASSERT_EQ(noAfc.size(), 1u);
    EXPECT_EQ(noAfc[0].code, 12);
    ASSERT_EQ(sim->control("refuse-service " + udid + " com.apple.afc off"), "ok");

    ASSERT_EQ(sim->control("refuse-service " + udid + " com.apple.mobile.installation_proxy on"), "ok");
    auto noProxy = run(504, jsonArray({ipa}));
    ASSERT_EQ(noProxy.size(), 1u);
    EXPECT_EQ(noProxy[0].code, 14);
}

TEST_F(AppCommands, DeviceLeavingMidInstallEndsTheCommandAndTheWorkerStaysUp) {
    e2e::ProfileVariant slow(kApps23, {{"<key>AppleID</key>", "<key>StepMilliseconds</key><integer>400</integer>"
                                                              "<key>AppleID</key>"}});
    start(slow.path(), kApps23Udid);
    const std::string ipa = makeIpa("slow.ipa", "--id com.zebrelo.e2e.slow --icon-url http://127.0.0.1:1/x.png");
    const uint64_t task = worker->nextTaskId();
    ASSERT_TRUE(worker->link.sendCommand(task, 504, e2e::commandJson(udid), jsonArray({ipa})));
    auto step = worker->waitFor([&](const zparent::Event& e) { return e.frame.taskId == task && e.stage == 2; }, 30s);
    ASSERT_TRUE(step) << "no progress before the device left";
    ASSERT_EQ(sim->control("detach " + udid), "ok");

    auto report = worker->waitFor([&](const zparent::Event& e) { return e.frame.taskId == task && isAppReport(e); }, 30s);
    ASSERT_TRUE(report) << "the install never ended";
    auto gone = worker->waitFor(
        [&](const zparent::Event& e) { return e.frame.taskId == 0 && e.frame.commandType == 8 && e.uuid == udid; }, 30s);
    EXPECT_TRUE(gone) << "no device-gone event";
    // The worker still answers: the device is simply not there any more.
    auto after = run(501, std::nullopt);
    ASSERT_EQ(after.size(), 1u);
    EXPECT_EQ(after[0].code, 7);
}
