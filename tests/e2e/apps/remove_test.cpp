// Commands 505 and 506: uninstall and archive with progress, checked with
// the stock tool.
#include "app_fixture.h"

TEST_F(AppCommands, UninstallReportsProgressPerAppAndTheStockToolAgrees) {
    start(e2e::profileDir(kApps23), kApps23Udid);
    ASSERT_NE(stockTool("-l").find("com.bluepeak.weather"), std::string::npos);
    auto events = run(505, jsonArray({"com.bluepeak.weather", "com.apple.mobilesafari"}));
    ASSERT_GE(events.size(), 4u);
    EXPECT_EQ(events.back().code, 0);
    EXPECT_EQ(events.back().frame.packetStatus, 1);

    std::vector<uint16_t> endings;
    for (size_t i = 0; i + 1 < events.size(); ++i) {
        const auto& e = events[i];
        EXPECT_EQ(e.stage, 0);
        EXPECT_EQ(e.frame.commandType, 505u);
        ASSERT_TRUE(e.hasInfo);
        const bool first = endings.empty();
        EXPECT_EQ(e.info, first ? "\"com.bluepeak.weather\"" : "\"com.apple.mobilesafari\"");
        if (e.code == 0 && (e.frame.packetStatus == 6 || i + 2 == events.size() ||
                            events[i + 1].info != e.info))
            endings.push_back(e.frame.packetStatus);
    }
    // A system app is refused by the device.
    EXPECT_EQ(endings, (std::vector<uint16_t>{2, 6}));
    const std::string stock = stockTool("-l");
    EXPECT_EQ(stock.find("com.bluepeak.weather"), std::string::npos) << stock;
    EXPECT_NE(stock.find("net.lumen.reader"), std::string::npos) << stock;
    EXPECT_NE(stockTool("-l -o list_system").find("com.apple.mobilesafari"), std::string::npos);
}

TEST_F(AppCommands, ArchiveLeavesAnArchiveTheStockToolLists) {
    start(e2e::profileDir(kApps23), kApps23Udid);
    auto events = run(506, jsonArray({"net.lumen.reader"}));
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events.back().code, 0);
    const auto& last = events[events.size() - 2];
    EXPECT_EQ(last.stage, 0);
    EXPECT_FALSE(last.hasInfo);
    EXPECT_EQ(last.frame.packetStatus, 2);
    EXPECT_NE(stockTool("-L").find("net.lumen.reader"), std::string::npos);

    // A second archive of the same app is refused: packetStatus 6, code 0.
    auto again = run(506, jsonArray({"net.lumen.reader"}));
    ASSERT_GE(again.size(), 2u);
    EXPECT_EQ(again[again.size() - 2].frame.packetStatus, 6);
    EXPECT_EQ(again[again.size() - 2].code, 0);
    EXPECT_EQ(again.back().code, 0);

    auto badTail = run(506, std::string("[\"unterminated"));
    ASSERT_EQ(badTail.size(), 1u);
    EXPECT_EQ(badTail[0].code, 8);
}
