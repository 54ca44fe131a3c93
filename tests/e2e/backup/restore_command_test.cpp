// Command 1601: backups put back onto a simulated device, the worker
// handing over exactly the files the device asks for.
#include "backup_fixture.h"

#include <sys/stat.h>

#include <fstream>
#include <map>

namespace fs = std::filesystem;

namespace {

std::vector<int64_t> valuesOfStage(const zparent::LongCommandOutcome& outcome, int32_t stage) {
    std::vector<int64_t> values;
    for (const auto& step : outcome.progress)
        if (step.stage == stage) values.push_back(step.value);
    return values;
}

bool strictlyRising(const std::vector<int64_t>& values) {
    return std::adjacent_find(values.begin(), values.end(), std::greater_equal<int64_t>()) == values.end();
}

constexpr char kSmsDbFile[] = "3d/3d0d7e5fb2ce288813306e4d4636395e047a3d28";

}  // namespace

TEST_F(BackupCommands, ARestoreAnswersEveryRequestAndFaultsAreTheDevicesOrOurs) {
    start("iphone13-ios17", kBuiltinUdid);
    const fs::path folder = stockBackup(udid, "stock");

    zparent::LongCommandOutcome done = restore(folder.string(), udid);
    EXPECT_TRUE(zparent::restoreCompleted(done.code)) << done.code << " " << done.error;
    const std::vector<int64_t> figures = valuesOfStage(done, 1);
    ASSERT_FALSE(figures.empty());
    EXPECT_EQ(figures.size(), done.progress.size()) << "every figure of a restore is stage 1";
    EXPECT_TRUE(strictlyRising(figures));
    EXPECT_LE(figures.back(), 10000);

    // Without the trailing separator the folder is still the backup.
    std::string bare = folder.string();
    bare.pop_back();
    EXPECT_TRUE(zparent::restoreCompleted(restore(bare, udid).code));

    // Every key must be there, the password too; nothing starts without.
    zparent::CommandRun run;
    run.taskId = worker->nextTaskId();
    std::string error;
    run.isReport = [&](const zparent::Event& event) {
        const bool final = zparent::isFinalReport(event);
        if (final) error = zparent::finalErrorText(event);
        return final;
    };
    size_t events = 0;
    const std::string noPassword =
        zparent::jsonStringObject({{"uuid", udid}, {"path", folder.string()}, {"sourceDeviceId", udid}});
    EXPECT_EQ(zparent::runCommand(worker->link, run, 1601, noPassword, std::nullopt,
                                  [&](const zparent::Event&) { ++events; }),
              21);
    EXPECT_EQ(error, "ParameterError");
    EXPECT_EQ(events, 0u);

    // A file missing on the host: it gets an error block, and the rest of
    // its batch is not sent; the device says how many it lacks.
    fs::rename(folder / kSmsDbFile, scratch / "sms.db");
    zparent::LongCommandOutcome missing = restore(folder.string(), udid);
    EXPECT_EQ(missing.code, 104) << missing.error;
    EXPECT_NE(missing.error.find("files could not be restored"), std::string::npos) << missing.error;
    // A FIFO in its place is no file either, and is not waited on.
    ASSERT_EQ(mkfifo((folder / kSmsDbFile).c_str(), 0600), 0);
    EXPECT_EQ(restore(folder.string(), udid).code, 104);
    fs::remove(folder / kSmsDbFile);
    fs::rename(scratch / "sms.db", folder / kSmsDbFile);

    // An empty Manifest.plist is an unencrypted backup to the worker; the
    // device then cannot read it and answers with its own code.
    fs::copy_file(folder / "Manifest.plist", scratch / "Manifest.plist");
    std::ofstream(folder / "Manifest.plist", std::ios::trunc).close();
    zparent::LongCommandOutcome empty = restore(folder.string(), udid);
    EXPECT_EQ(empty.code, 205) << empty.error;

    // A broken one, or none, stops the worker before the device hears of it.
    std::ofstream(folder / "Manifest.plist", std::ios::trunc) << "<plist><dict><key>";
    zparent::LongCommandOutcome broken = restore(folder.string(), udid);
    EXPECT_EQ(broken.code, 42);
    EXPECT_EQ(broken.error, "BackupManifestPlistError");
    fs::remove(folder / "Manifest.plist");
    zparent::LongCommandOutcome none = restore(folder.string(), udid);
    EXPECT_EQ(none.code, 42);
    EXPECT_TRUE(none.progress.empty());

    // The worker is still there for the next command.
    fs::copy_file(scratch / "Manifest.plist", folder / "Manifest.plist");
    EXPECT_TRUE(zparent::restoreCompleted(restore(folder.string(), udid).code));
}

TEST_F(BackupCommands, ABackupTheWorkerMadeRestoresThroughTheStockTool) {
    start("iphone13-ios17", kBuiltinUdid);
    const zparent::BackupOutcome made = backup((scratch / "worker" / "").string());
    ASSERT_EQ(made.code, 0) << made.error;
    // The stock tool looks for <folder>/<udid>/.
    const fs::path byId = scratch / "by-id";
    fs::create_directories(byId);
    fs::create_directory_symlink(fs::path(made.folder).parent_path(), byId / udid);
    int status = -1;
    const std::string output = stockTool("-u " + udid + " restore --system " + byId.string(), &status);
    EXPECT_EQ(status, 0) << output;
    EXPECT_NE(output.find("Restore Successful"), std::string::npos) << output;
}

TEST_F(BackupCommands, ADevicePulledOutInTheMiddleOfARestoreEndsItAndTheWorkerStaysUp) {
    auto variant = std::make_unique<e2e::ProfileVariant>(
        "iphone13-ios17-noapps",
        std::vector<std::pair<std::string, std::string>>{
            {"<key>Values</key>", "<key>Backup</key><dict><key>PageDelayMilliseconds</key><integer>300</integer>"
                                  "</dict><key>Values</key>"}});
    start(variant->path(), "00008110-001A2B3C4D5E6000");
    const fs::path folder = stockBackup(udid, "stock");
    std::thread pull([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        sim->control("detach " + udid);
    });
    zparent::LongCommandOutcome cut = restore(folder.string(), udid);
    pull.join();
    EXPECT_EQ(cut.code, 2) << cut.error;
    EXPECT_EQ(cut.error, "Task error Unknown.");
    EXPECT_EQ(sim->control("attach " + udid).rfind("ok", 0), 0u);
    ASSERT_TRUE(worker->waitForReady(udid).has_value());
    EXPECT_TRUE(zparent::restoreCompleted(restore(folder.string(), udid).code));
}

namespace {

// Every file of the media partition with its size, by path; the sync lock
// and the app list the stock tool puts on the device (iTunesRestore/) are
// its own, not the backup's.
std::map<std::string, uintmax_t> mediaTree(const fs::path& root) {
    std::map<std::string, uintmax_t> tree;
    std::error_code error;
    for (fs::recursive_directory_iterator it(root, error), end; !error && it != end; it.increment(error)) {
        const std::string path = fs::relative(it->path(), root).string();
        if (it->is_regular_file(error) && path != "com.apple.itunes.lock_sync" && path.rfind("iTunesRestore/", 0) != 0)
            tree[path] = it->file_size(error);
    }
    return tree;
}

}  // namespace

TEST_F(BackupCommands, TheWorkersRestoreLeavesTheDeviceAsTheStockToolsDoes) {
    // Two devices of one profile: one restored by the stock tool, one by the
    // worker, from the same backup of the built-in device.
    const std::string noApps = e2e::profileDir("iphone13-ios17-noapps");
    sim = std::make_unique<e2e::Simulator>(std::vector<std::string>{"--builtin", "--profile", noApps, "--profile", noApps});
    ASSERT_TRUE(sim->ready());
    std::vector<std::string> targets;
    for (const std::string& device : sim->udids())
        if (device != kBuiltinUdid) targets.push_back(device);
    ASSERT_EQ(targets.size(), 2u);
    sim.reset();
    startDevices({"--builtin", "--profile", noApps, "--profile", noApps}, {targets[1], kBuiltinUdid, targets[0]});
    const fs::path folder = stockBackup(kBuiltinUdid, "source");

    int status = -1;
    const std::string output = stockTool("-u " + targets[0] + " -s " + kBuiltinUdid + " restore --system --no-reboot " +
                                             (scratch / "source").string(),
                                         &status);
    ASSERT_EQ(status, 0) << output;
    const zparent::LongCommandOutcome ours = restore(folder.string(), kBuiltinUdid);
    ASSERT_TRUE(zparent::restoreCompleted(ours.code)) << ours.code << " " << ours.error;

    EXPECT_FALSE(userApps(targets[1]).empty());
    EXPECT_EQ(userApps(targets[1]), userApps(targets[0]));
    EXPECT_EQ(mediaTree(mediaRoot(targets[1])), mediaTree(mediaRoot(targets[0])));
}

TEST_F(BackupCommands, AnEncryptedBackupRestoresWithItsPasswordOnly) {
    const std::string noApps = e2e::profileDir("iphone13-ios17-noapps");
    startDevices({"--builtin", "--profile", noApps}, {"00008110-001A2B3C4D5E6000", kBuiltinUdid});
    int status = -1;
    const std::string on = stockTool("-u " + std::string(kBuiltinUdid) + " encryption on \"s3cret pass\"", &status);
    ASSERT_EQ(status, 0) << on;
    const fs::path folder = stockBackup(kBuiltinUdid, "encrypted");

    const zparent::LongCommandOutcome wrong = restore(folder.string(), kBuiltinUdid, "wrong");
    EXPECT_EQ(wrong.code, 207) << wrong.error;
    EXPECT_NE(wrong.error.find("Invalid password"), std::string::npos) << wrong.error;
    const zparent::LongCommandOutcome right = restore(folder.string(), kBuiltinUdid, "s3cret pass");
    EXPECT_TRUE(zparent::restoreCompleted(right.code)) << right.code << " " << right.error;
    EXPECT_FALSE(userApps(udid).empty()) << "the apps of the backup came over";
}
