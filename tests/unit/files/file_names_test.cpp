// Which device paths the file module accepts and how display names become
// local names.
#include "zeb_file_names.h"

#include <gtest/gtest.h>

TEST(FileNames, ParentComponentsAreFoundAnywhere) {
    for (const char* bad : {"..", "/..", "../a", "/a/../b", "/a/..", "a/../../b"})
        EXPECT_TRUE(zeb::hasParentComponent(bad)) << bad;
    for (const char* good : {"/a/b", "/a..b/c", "/..a", "/a/b..", "/.", "//a//b/", ""})
        EXPECT_FALSE(zeb::hasParentComponent(good)) << good;
}

TEST(FileNames, DisplayNamesBecomeOneLocalName) {
    EXPECT_EQ(zeb::cleanDisplayName("a>b"), "a>b");
    EXPECT_EQ(zeb::cleanDisplayName("a/b:c"), "a_b_c");
    EXPECT_EQ(zeb::cleanDisplayName("\\*?\"<|"), "______");
    EXPECT_EQ(zeb::cleanDisplayName(std::string("a\x01\x1f\x7f", 4)), "a___");
    EXPECT_EQ(zeb::cleanDisplayName("caf\xc3\xa9"), "caf\xc3\xa9");
    EXPECT_EQ(zeb::cleanDisplayName("../etc/passwd"), ".._etc_passwd");
    EXPECT_EQ(zeb::cleanDisplayName("/abs"), "_abs");
    for (const char* special : {"", ".", ".."}) EXPECT_EQ(zeb::cleanDisplayName(special), "_") << special;
}

TEST(FileNames, ExtensionsAndBooks) {
    EXPECT_EQ(zeb::deviceExtension("/DCIM/IMG_1.JPG"), ".JPG");
    EXPECT_EQ(zeb::deviceExtension("/a.b/c"), "");
    EXPECT_EQ(zeb::deviceExtension("/a/c"), "");
    EXPECT_TRUE(zeb::isEpubPath("/Books/x.epub"));
    EXPECT_TRUE(zeb::isEpubPath("/Books/x.EpUb/"));
    EXPECT_FALSE(zeb::isEpubPath("/Books/x.pub"));
    EXPECT_FALSE(zeb::isEpubPath("epub"));
    EXPECT_EQ(zeb::deviceBaseName("/a/b.txt"), "b.txt");
}
