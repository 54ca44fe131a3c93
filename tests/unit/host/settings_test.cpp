// Positional arguments and version texts.
#include "zeb_settings.h"
#include "zeb_versions.h"

#include <gtest/gtest.h>

namespace {

TEST(Settings, PositionsAreReadAsTheParentWritesThem) {
    auto parsed = zeb::parseSettings({"4567", "321", "1", "0", "1", "2.5.0", "ZebLogs", "Zebrelo", "1", "x", "99"});
    EXPECT_EQ(parsed.parentPort, 4567);
    EXPECT_EQ(parsed.parentPid, 321);
    EXPECT_TRUE(parsed.consoleEnabled);
    EXPECT_FALSE(parsed.testModuleEnabled);
    EXPECT_TRUE(parsed.logEnabled);
    EXPECT_EQ(parsed.productVersion, "2.5.0");
    EXPECT_EQ(parsed.runMode, 1);
    EXPECT_EQ(parsed.taskId, 99);
    // <temp>/<folder>/<YYYYMMDD>/
    EXPECT_EQ(parsed.logDir.parent_path().parent_path().filename(), "ZebLogs");
    EXPECT_EQ(parsed.logDir.parent_path().filename().string().size(), 8u);

    // The task id is read in run mode 1 alone; junk numbers read as 0.
    parsed = zeb::parseSettings({"abc", "12x", "0", "0", "0", "", "L", "", "0", "", "99"});
    EXPECT_EQ(parsed.parentPort, 0);
    EXPECT_EQ(parsed.parentPid, 12);
    EXPECT_EQ(parsed.taskId, 0);
}

TEST(Versions, CompareStepsThroughTheDots) {
    EXPECT_EQ(zeb::compareVersions("10.2", "9.3"), 1);
    EXPECT_EQ(zeb::compareVersions("9.1", "9.1.0"), -1);
    EXPECT_EQ(zeb::compareVersions("9.1.0", "9.1"), 1);
    EXPECT_EQ(zeb::compareVersions("8.1.2", "8.1.2"), 0);
    EXPECT_EQ(zeb::compareVersions("3.1.2", "10.2.1"), -1);
}

}  // namespace
