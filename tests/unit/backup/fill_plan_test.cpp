// The free-space fill's arithmetic: what the parent sees pass by pass.
#include "zeb_fill_plan.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

TEST(FillPlan, ProgressSpreadsOverTheLevelsAndNeverPassesTheTwoPasses) {
    // Level 1: one pass to 100.
    EXPECT_EQ(erase::fillProgress(0, 1, 1), 1);
    EXPECT_EQ(erase::fillProgress(0, 100, 1), 100);
    // Level 2: the first pass to 50, the second from 50 up to 100.
    EXPECT_EQ(erase::fillProgress(0, 1, 2), 1);  // rounded up
    EXPECT_EQ(erase::fillProgress(0, 100, 2), 50);
    EXPECT_EQ(erase::fillProgress(50, 1, 2), 51);
    EXPECT_EQ(erase::fillProgress(50, 100, 2), 100);
    // Level 3: two passes only, 1..34 then 51..84.
    EXPECT_EQ(erase::fillProgress(0, 100, 3), 34);
    EXPECT_EQ(erase::fillProgress(50, 1, 3), 51);
    EXPECT_EQ(erase::fillProgress(50, 100, 3), 84);
}

TEST(FillPlan, PercentIsCappedAndSafeForHugePartitions) {
    EXPECT_EQ(erase::fillPercent(0, 1000), 0);
    EXPECT_EQ(erase::fillPercent(999, 1000), 99);
    EXPECT_EQ(erase::fillPercent(536870912, 268435456), 100);  // a whole file counts even past the end
    const uint64_t huge = 1ull << 62;
    EXPECT_EQ(erase::fillPercent(huge / 2, huge), 50);  // x 100 would wrap in 64 bits
}

TEST(FillPlan, FileNamesLieInTheFillFolderWithTimeAndCounter) {
    const std::string name = erase::fillFileName(1700000000, 12);
    EXPECT_TRUE(std::regex_match(name, std::regex("/iostemp/[0-9]{14}-12"))) << name;
    // Times outside the clock's range fall back to the epoch.
    EXPECT_EQ(erase::fillFileName(-5, 1).substr(0, 9), "/iostemp/");
}

}  // namespace
