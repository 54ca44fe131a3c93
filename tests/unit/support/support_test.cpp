// Digest, size, time and path helpers, and the SQL regexp function.
#include "zeb_digest.h"
#include "zeb_format.h"
#include "zeb_local_file.h"
#include "zeb_paths.h"
#include "zeb_sqlite_regexp.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <fstream>

namespace fs = std::filesystem;

namespace {

// Runs the body with the process's time zone set to `zone`.
template <typename Body>
void inZone(const char* zone, Body body) {
    const char* old = getenv("TZ");
    std::string saved = old ? old : "";
    setenv("TZ", zone, 1);
    tzset();
    body();
    if (old)
        setenv("TZ", saved.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
}

TEST(FormatSize, StepsAtEachThousandTwentyFour) {
    EXPECT_EQ(zeb::formatSize(0), "0.00 B");
    EXPECT_EQ(zeb::formatSize(1023), "1023.00 B");
    EXPECT_EQ(zeb::formatSize(1024), "1.00 KB");
    EXPECT_EQ(zeb::formatSize(1536 * 1024), "1.50 MB");
    EXPECT_EQ(zeb::formatSize(1024.0 * 1024 * 1024 * 64), "64.00 GB");
}

TEST(SecondsToText, RoundsAndShowsHoursOnlyWhenThereAreAny) {
    EXPECT_EQ(zeb::secondsToText(59.4), "00:59");
    EXPECT_EQ(zeb::secondsToText(59.5), "01:00");
    EXPECT_EQ(zeb::secondsToText(3599.4), "59:59");
    EXPECT_EQ(zeb::secondsToText(3600), "01:00:00");
    EXPECT_EQ(zeb::secondsToText(90061), "25:01:01");  // hours aren't capped at 24
}

TEST(DeviceTimes, SecondsAndNanosecondsGiveTheSameLocalText) {
    inZone("UTC", [] {
        EXPECT_EQ(zeb::appleTimeToText(0), "2001-01-01 00:00:00");
        EXPECT_EQ(zeb::appleTimeToText(-50), "2001-01-01 00:00:00");
        EXPECT_EQ(zeb::appleTimeToText(600000000), "2020-01-06 10:40:00");
        EXPECT_EQ(zeb::appleTimeToText(600000000LL * 1000000000LL), "2020-01-06 10:40:00");
    });
    inZone("Asia/Tokyo", [] { EXPECT_EQ(zeb::appleTimeToText(600000000), "2020-01-06 19:40:00"); });
    inZone("America/New_York", [] {
        // Summer and winter: the zone's own offset of that day applies.
        EXPECT_EQ(zeb::utcTextToLocal("2021-07-01T12:00:00Z"), "2021-07-01 08:00:00");
        EXPECT_EQ(zeb::utcTextToLocal("2021-12-01 12:00:00"), "2021-12-01 07:00:00");
    });
    EXPECT_EQ(zeb::utcTextToLocal("2021-07-01"), "");
    EXPECT_EQ(zeb::utcTextToLocal(nullptr), "");
}

class Files : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/zeb-support-XXXXXX";
        root = mkdtemp(pattern);
    }
    void TearDown() override { fs::remove_all(root); }
    void write(const fs::path& path, const std::string& content) {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
    }
    fs::path root;
};

TEST_F(Files, Md5OfEmptyAndKnownContentAndMissingFile) {
    write(root / "empty", "");
    write(root / "abc", "abc");
    EXPECT_EQ(zeb::fileMd5(root / "empty"), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(zeb::fileMd5(root / "abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(zeb::fileMd5(root / "missing"), "");
}

TEST_F(Files, UniqueLocalNameNumbersInFrontOfTheExtension) {
    EXPECT_EQ(zeb::uniqueLocalName(root / "IMG_0001.JPG"), root / "IMG_0001.JPG");
    write(root / "IMG_0001.JPG", "x");
    EXPECT_EQ(zeb::uniqueLocalName(root / "IMG_0001.JPG"), root / "IMG_0001(1).JPG");
    write(root / "IMG_0001(1).JPG", "x");
    EXPECT_EQ(zeb::uniqueLocalName(root / "IMG_0001.JPG"), root / "IMG_0001(2).JPG");
    // A dot in a folder's name is not an extension.
    write(root / "a.folder" / "notes", "x");
    EXPECT_EQ(zeb::uniqueLocalName(root / "a.folder" / "notes"), root / "a.folder" / "notes(1)");
    // A link that leads nowhere holds its name all the same.
    fs::create_symlink(root / "nowhere", root / "dangling.JPG");
    EXPECT_EQ(zeb::uniqueLocalName(root / "dangling.JPG"), root / "dangling(1).JPG");
}

TEST_F(Files, LocalFilesAreNeverWrittenThroughALinkAndReadOnlyWhenRegularAndWithinTheirBound) {
    const fs::path outside = root / "outside";
    fs::create_directory(outside);
    write(outside / "kept", "kept");
    fs::create_symlink(outside / "planted", root / "dangling");
    fs::create_symlink(outside / "kept", root / "to-file");
    fs::create_symlink(outside, root / "to-folder");
    ASSERT_EQ(mkfifo((root / "fifo").c_str(), 0600), 0);
    std::string bytes;
    for (const char* name : {"dangling", "to-file", "fifo"}) {
        EXPECT_EQ(zeb::createLocalFile(root / name), nullptr) << name;
        EXPECT_EQ(zeb::overwriteLocalFile(root / name), nullptr) << name;
    }
    EXPECT_FALSE(zeb::readRegularFile(root / "fifo", 100, bytes));
    EXPECT_FALSE(zeb::readRegularFile(root / "to-folder", 100, bytes));
    EXPECT_TRUE(zeb::readRegularFile(root / "to-file", 4, bytes)) << "a link is followed for reading";
    EXPECT_EQ(bytes, "kept");
    EXPECT_FALSE(zeb::readRegularFile(root / "to-file", 3, bytes));
    EXPECT_TRUE(bytes.empty());
    EXPECT_FALSE(zeb::makeLocalFolder(root / "to-folder"));
    EXPECT_FALSE(zeb::makeLocalFolder(root / "to-folder/"));
    EXPECT_FALSE(fs::exists(outside / "planted"));
    EXPECT_EQ(fs::file_size(outside / "kept"), 4u);

    // Regular files: made anew, or overwritten when the caller reuses one.
    FILE* made = zeb::createLocalFile(root / "new");
    ASSERT_NE(made, nullptr);
    fclose(made);
    EXPECT_EQ(zeb::createLocalFile(root / "new"), nullptr);
    write(root / "old", "old content");
    FILE* reused = zeb::overwriteLocalFile(root / "old");
    ASSERT_NE(reused, nullptr);
    fputs("x", reused);
    fclose(reused);
    EXPECT_EQ(fs::file_size(root / "old"), 1u);
    EXPECT_TRUE(zeb::makeLocalFolder(root / "a" / "b"));
    EXPECT_TRUE(zeb::makeLocalFolder(root / "a" / "b"));
}

TEST_F(Files, FolderSizeAddsEveryFileBelow) {
    write(root / "a", std::string(100, 'a'));
    write(root / "sub" / "deeper" / "b", std::string(23, 'b'));
    EXPECT_EQ(zeb::folderSize(root, 7), 130u);
}

TEST(MatchAll, FindsEveryJoinTableName) {
    auto found = zeb::matchAll("CREATE TABLE Z_26ASSETS ( Z_26ALBUMS INTEGER, Z_3ASSETS INTEGER, Z_ASSETS )");
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0], "Z_26ASSETS");
    EXPECT_EQ(found[1], "Z_3ASSETS");
}

TEST(SqlRegexp, WholeTextMatchesAndErrorsForBadInput) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(":memory:", &db), SQLITE_OK);
    ASSERT_EQ(zeb::registerRegexp(db), SQLITE_OK);
    auto ask = [&](const char* sql, int* value) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) return SQLITE_ERROR;
        int result = sqlite3_step(statement);
        if (result == SQLITE_ROW) *value = sqlite3_column_int(statement, 0);
        sqlite3_finalize(statement);
        return result;
    };
    int value = -1;
    EXPECT_EQ(ask("SELECT 'Z_26ASSETS' REGEXP 'Z_[0-9]+ASSETS'", &value), SQLITE_ROW);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(ask("SELECT 'xZ_26ASSETS' REGEXP 'Z_[0-9]+ASSETS'", &value), SQLITE_ROW);
    EXPECT_EQ(value, 0);  // the whole text must match
    EXPECT_EQ(ask("SELECT NULL REGEXP 'a'", &value), SQLITE_ERROR);
    EXPECT_EQ(ask("SELECT 'a' REGEXP '(['", &value), SQLITE_ERROR);
    sqlite3_close(db);
}

}  // namespace
