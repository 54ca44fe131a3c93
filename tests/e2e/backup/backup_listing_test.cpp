// Command 1602: backups found in the parent's folders, announced first and
// sized after.
#include "backup_fixture.h"

#include <cctype>

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
