// Command 1602: backups found in the parent's folders, announced first and
// sized after.
#include "backup_fixture.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <fstream>

namespace fs = std::filesystem;

namespace {

TEST_F(BackupCommands, BackupsAreFoundOnceOneLevelDownAndSizedAfter) {
    start("iphone13-ios17-noapps", "00008110-001A2B3C4D5E6000");
    const zparent::BackupOutcome first = backup((scratch / "a" / "").string());
    ASSERT_EQ(first.code, 0) << first.error;
    const zparent::BackupOutcome second = backup((scratch / "b" / "").string());
    ASSERT_EQ(second.code, 0) << second.error;
    // Two levels below a given folder is too deep.
    fs::create_directories(scratch / "c" / "deep");
    fs::rename(fs::path(second.folder).parent_path(), scratch / "c" / "deep" / "moved");

    zparent::CommandRun run;
    run.taskId = worker->nextTaskId();
    const zparent::BackupListing listing = zparent::listBackups(
        worker->link, run, {(scratch / "a").string(), (scratch / "c").string(), (scratch / "a").string(),
                            (scratch / "missing").string()});
    ASSERT_EQ(listing.code, 0);
    ASSERT_EQ(listing.firstSeen.size(), 1u);
    const std::string path = listing.firstSeen.front();
    EXPECT_EQ(fs::path(path), fs::path(first.folder));
    ASSERT_TRUE(listing.records.HasMember(path.c_str()));
    const auto& record = listing.records[path.c_str()];
    const std::string id = record["Unique Identifier"].GetString();
    for (char c : id) EXPECT_FALSE(isupper(static_cast<unsigned char>(c))) << id;
    EXPECT_EQ(record["Product Type"].GetString(), std::string("iPhone14,5"));
    EXPECT_FALSE(record["IsEncrypted"].GetBool());
    EXPECT_FALSE(std::string(record["Last Backup Date"].GetString()).empty());
    uint64_t bytes = 0;
    for (const auto& file : filesBelow(path)) bytes += fs::file_size(fs::path(path) / file);
    EXPECT_EQ(record["Size"].GetUint64(), bytes);
}

// Whoever can write into a backup folder may leave a FIFO or a link to an
// endless device where a property list belongs: the listing and the restore
// take such a file as unreadable, at once and without growing.
TEST_F(BackupCommands, PlistFilesThatAreNoRegularFilesAreUnreadable) {
    start("iphone13-ios17-noapps", "00008110-001A2B3C4D5E6000");
    const std::string plist =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict><key>Product Type</key>"
        "<string>iPhone14,5</string></dict></plist>";
    const fs::path list = scratch / "list";
    // name -> what Info.plist and Manifest.plist are: "fifo", "zero" (a link to /dev/zero) or a real list.
    const std::pair<const char*, std::pair<const char*, const char*>> folders[] = {
        {"fifo-info", {"fifo", "plist"}}, {"zero-info", {"zero", "plist"}},
        {"fifo-manifest", {"plist", "fifo"}}, {"zero-manifest", {"plist", "zero"}}};
    for (const auto& [name, kinds] : folders) {
        const fs::path folder = list / name;
        fs::create_directories(folder);
        std::ofstream(folder / "Status.plist") << plist;
        const std::pair<const char*, const char*> files[] = {{"Info.plist", kinds.first},
                                                              {"Manifest.plist", kinds.second}};
        for (const auto& [file, kind] : files) {
            const std::string kindText = kind;
            if (kindText == "fifo")
                ASSERT_EQ(mkfifo((folder / file).c_str(), 0600), 0);
            else if (kindText == "zero")
                fs::create_symlink("/dev/zero", folder / file);
            else
                std::ofstream(folder / file) << plist;
        }
    }

    zparent::CommandRun run;
    run.taskId = worker->nextTaskId();
    run.idleTimeout = std::chrono::seconds(20);
    const zparent::BackupListing listing = zparent::listBackups(worker->link, run, {list.string()});
    ASSERT_EQ(listing.code, 0);
    // A backup whose Info.plist cannot be read is not described; one whose
    // Manifest.plist cannot be is not encrypted.
    std::vector<std::string> seen;
    for (const std::string& path : listing.firstSeen) seen.push_back(fs::path(path).parent_path().filename().string());
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<std::string>{"fifo-manifest", "zero-manifest"}));
    for (const std::string& path : listing.firstSeen)
        EXPECT_FALSE(listing.records[path.c_str()]["IsEncrypted"].GetBool()) << path;

    for (const char* name : {"fifo-manifest", "zero-manifest"}) {
        run.taskId = worker->nextTaskId();
        const zparent::LongCommandOutcome restored =
            zparent::runRestore(worker->link, run, udid, {(list / name / "").string(), udid, ""});
        EXPECT_EQ(restored.code, 42) << name;
        EXPECT_EQ(restored.error, "BackupManifestPlistError") << name;
    }
}

}  // namespace

// A parent may ask at once, before any device is there: the worker has its
// commands and the provider ready before the link comes up.
TEST(BackupListingAtOnce, AListingSentTheMomentTheLinkIsUpIsAnswered) {
    e2e::Simulator sim;
    ASSERT_TRUE(sim.ready());
    for (int round = 0; round < 8; ++round) {
        e2e::Worker worker(sim);
        ASSERT_TRUE(worker.connected());
        const std::vector<zparent::Event> events =
            worker.run(1602, "{\"uuid\":\"\",\"paths\":[\"/nonexistent-zebrelo-folder\"]}", std::nullopt,
                       std::chrono::seconds(10));
        ASSERT_FALSE(events.empty()) << "round " << round << ": no answer";
        EXPECT_EQ(events.back().code, 0);
    }
}
