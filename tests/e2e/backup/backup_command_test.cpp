// Command 1600 and the device questions, against the simulator's backup
// service, with the stock tool reading what the worker made.
#include "backup_fixture.h"

#include <fstream>
#include <map>
#include <regex>

namespace fs = std::filesystem;

namespace {

// A copy of the small-content profile with switches of its backup service.
std::unique_ptr<e2e::ProfileVariant> backupVariant(const std::string& switches) {
    return std::make_unique<e2e::ProfileVariant>(
        "iphone13-ios17-noapps",
        std::vector<std::pair<std::string, std::string>>{{"<key>Values</key>", "<key>Backup</key><dict>" + switches +
                                                                                   "</dict><key>Values</key>"}});
}

constexpr char kNoAppsUdid[] = "00008110-001A2B3C4D5E6000";

TEST_F(BackupCommands, ABackupGrowsToTheEndAndTheStockToolReadsIt) {
    start("iphone13-ios17", kBuiltinUdid);
    const fs::path root = scratch / "worker" / "";
    const zparent::BackupOutcome outcome = backup(root.string());
    ASSERT_EQ(outcome.code, 0) << outcome.error;
    ASSERT_FALSE(outcome.progress.empty());
    EXPECT_TRUE(std::is_sorted(outcome.progress.begin(), outcome.progress.end()));
    EXPECT_EQ(std::adjacent_find(outcome.progress.begin(), outcome.progress.end()), outcome.progress.end());
    EXPECT_EQ(outcome.progress.back(), 10000);

    const fs::path folder(outcome.folder);
    const std::string name = folder.parent_path().filename().string();
    EXPECT_TRUE(std::regex_match(name, std::regex(std::string(kBuiltinUdid) + "-[0-9]{14}"))) << name;
    for (const char* file : {"Info.plist", "Manifest.plist", "Status.plist", "Manifest.db"})
        EXPECT_TRUE(fs::exists(folder / file)) << file;
    plist_t info = readPlistFile(folder / "Info.plist");
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(plistText(info, "Target Identifier"), kBuiltinUdid);
    EXPECT_EQ(plistText(info, "Product Type"), "iPhone14,5");
    EXPECT_EQ(plistText(info, "Target Type"), "Device");
    EXPECT_EQ(plistText(info, "iTunes Version"), "11.2.2.3");
    plist_t installed = plist_dict_get_item(info, "Installed Applications");
    ASSERT_NE(installed, nullptr);
    EXPECT_GT(plist_array_get_size(installed), 0u);
    plist_t apps = plist_dict_get_item(info, "Applications");
    ASSERT_NE(apps, nullptr);
    EXPECT_EQ(plist_dict_get_size(apps), plist_array_get_size(installed));
    plist_free(info);

    int status = -1;
    const std::string listed = stockTool("-u " + udid + " -s " + name + " info " + root.string(), &status);
    EXPECT_EQ(status, 0) << listed;
    EXPECT_NE(listed.find(kBuiltinUdid), std::string::npos) << listed;
    const std::string files = stockTool("-u " + udid + " -s " + name + " list " + root.string(), &status);
    EXPECT_EQ(status, 0) << files;
    EXPECT_NE(files.find("sms.db"), std::string::npos) << files;
}

TEST_F(BackupCommands, TheWorkersFilesAreTheOnesTheStockToolGets) {
    start("iphone13-ios17-noapps", kNoAppsUdid);
    const zparent::BackupOutcome outcome = backup((scratch / "worker" / "").string());
    ASSERT_EQ(outcome.code, 0) << outcome.error;
    int status = -1;
    fs::create_directories(scratch / "stock");  // the stock tool makes only the device's folder
    const std::string output = stockTool("-u " + udid + " backup --full " + (scratch / "stock").string(), &status);
    ASSERT_EQ(status, 0) << output;

    const fs::path ours(outcome.folder), theirs = scratch / "stock" / udid;
    std::vector<std::string> hashed;
    for (const auto& file : filesBelow(ours))
        if (file.size() > 3 && file[2] == '/') hashed.push_back(file);  // the two-character folders
    ASSERT_GT(hashed.size(), 10u);
    for (const auto& file : hashed) EXPECT_EQ(fileBytes(ours / file), fileBytes(theirs / file)) << file;
}

TEST_F(BackupCommands, ADeviceErrorEndsTheBackupWithItsCodeAndLeavesNoFolder) {
    auto profile = backupVariant("<key>FailAtPercent</key><integer>30</integer>");
    start(profile->path(), kNoAppsUdid);
    const zparent::BackupOutcome outcome = backup((scratch / "failed" / "").string());
    EXPECT_NE(outcome.code, 0);
    EXPECT_NE(outcome.code, -1);
    EXPECT_FALSE(outcome.error.empty());
    ASSERT_FALSE(outcome.folder.empty());
    EXPECT_FALSE(fs::exists(outcome.folder));
}

TEST_F(BackupCommands, ADevicePulledOutMidwayEndsWithoutAFolderAndTheWorkerGoesOn) {
    auto profile = backupVariant("<key>DropAtPercent</key><integer>30</integer>");
    start(profile->path(), kNoAppsUdid);
    const zparent::BackupOutcome outcome = backup((scratch / "dropped" / "").string());
    EXPECT_TRUE(outcome.code == 45 || outcome.code == 2) << outcome.code;
    EXPECT_FALSE(outcome.progress.empty());
    EXPECT_LT(outcome.progress.back(), 10000);
    EXPECT_FALSE(fs::exists(outcome.folder));
    EXPECT_EQ(question(1604, zparent::uuidJson(udid)), 1);  // still answering
}

TEST_F(BackupCommands, QuestionsAndThePasswordReflectTheDevice) {
    start("iphone13-ios17", kBuiltinUdid);
    const std::string uuid = zparent::uuidJson(udid);
    EXPECT_EQ(question(1604, uuid), 1);
    const int64_t fmip = question(1603, uuid);
    EXPECT_TRUE(fmip == 0 || fmip == 1);
    const std::string on = "{\"uuid\":\"" + udid + "\",\"password\":\"s3cret\"}";
    EXPECT_EQ(question(1605, on), 0);
    EXPECT_EQ(question(1604, uuid), 0);
    const std::string off = "{\"uuid\":\"" + udid + "\",\"password\":\"\",\"oldPassword\":\"s3cret\"}";
    EXPECT_EQ(question(1605, off), 1);
    EXPECT_EQ(question(1604, uuid), 1);

    EXPECT_EQ(question(1600, "{\"uuid\":\"no-such-device\",\"path\":\"\"}"), 7);
    EXPECT_EQ(question(1602, "{\"uuid\":\"\"}"), 21);
    EXPECT_EQ(question(1606, uuid), 1);
    EXPECT_EQ(question(1607, uuid), 0);
}

}  // namespace

namespace {

TEST_F(BackupCommands, ADeviceWithoutTelephonyHasNoCardNumbersAndARefusedServiceIs12) {
    start("ipad-air-ios15", "00008101-000A1B2C3D4E502E");
    const zparent::BackupOutcome outcome = backup((scratch / "ipad" / "").string());
    ASSERT_EQ(outcome.code, 0) << outcome.error;
    plist_t info = readPlistFile(fs::path(outcome.folder) / "Info.plist");
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(plist_dict_get_item(info, "ICCID"), nullptr);
    EXPECT_EQ(plist_dict_get_item(info, "IMEI"), nullptr);
    EXPECT_EQ(plistText(info, "Product Type"), "iPad13,1");
    plist_free(info);

    ASSERT_EQ(sim->control("refuse-service " + udid + " com.apple.mobilebackup2 on"), "ok");
    const zparent::BackupOutcome refused = backup((scratch / "refused" / "").string());
    EXPECT_EQ(refused.code, 12);
    EXPECT_EQ(refused.error, "DeviceOpenAFCServiceFail");
}

TEST_F(BackupCommands, TwoBackupsOfOneDeviceTakeTurns) {
    start("iphone13-ios17-noapps", "00008110-001A2B3C4D5E6000");
    const std::string json1 = "{\"uuid\":\"" + udid + "\",\"path\":\"" + (scratch / "one" / "").string() + "\"}";
    const std::string json2 = "{\"uuid\":\"" + udid + "\",\"path\":\"" + (scratch / "two" / "").string() + "\"}";
    const uint64_t first = worker->nextTaskId(), second = worker->nextTaskId();
    ASSERT_TRUE(worker->link.sendCommand(first, 1600, json1));
    ASSERT_TRUE(worker->link.sendCommand(second, 1600, json2));
    std::map<uint64_t, int64_t> codes;
    while (codes.size() < 2) {
        auto event = worker->waitFor([&](const zparent::Event& e) {
            return (e.frame.taskId == first || e.frame.taskId == second) && zparent::isFinalReport(e);
        }, std::chrono::seconds(60));
        ASSERT_TRUE(event.has_value());
        codes[event->frame.taskId] = event->code;
    }
    EXPECT_EQ(codes[first], 0);
    EXPECT_EQ(codes[second], 0);
    for (const char* folder : {"one", "two"}) {
        std::vector<std::string> made;
        for (const auto& entry : fs::directory_iterator(scratch / folder)) made.push_back(entry.path().string());
        ASSERT_EQ(made.size(), 1u) << folder;
        EXPECT_TRUE(fs::exists(fs::path(made[0]) / "Manifest.db")) << made[0];
    }
}

}  // namespace

namespace {

// The device cut off (its links broken, or pulled out) right after the
// first progress figure: the backup never ends as done, and its folder goes.
TEST_F(BackupCommands, ABackupCutOffMidwayIsNeverDoneLeavesNoFolderAndTheNextSucceeds) {
    start("iphone13-ios17-noapps", kNoAppsUdid);
    // The cut races the worker's reading of the page the device has sent:
    // a few rounds, most of them breaks, which meet the race more often.
    for (int round = 0; round < 8; ++round) {
        const bool pull = round % 4 == 3;
        const fs::path root = scratch / ("cut" + std::to_string(round));
        const std::string json = "{\"uuid\":\"" + udid + "\",\"path\":\"" + (root / "").string() + "\"}";
        const uint64_t task = worker->nextTaskId();
        ASSERT_TRUE(worker->link.sendCommand(task, 1600, json));
        ASSERT_TRUE(worker->waitFor([&](const zparent::Event& e) {
            return e.frame.taskId == task && e.stage == 1 && e.frame.packetStatus == 2;
        }, std::chrono::seconds(30)).has_value());
        ASSERT_EQ(sim->control((pull ? "detach " : "break ") + udid), "ok");
        auto final = worker->waitFor(
            [&](const zparent::Event& e) { return e.frame.taskId == task && zparent::isFinalReport(e); },
            std::chrono::seconds(60));
        ASSERT_TRUE(final.has_value());
        // Pulled out, the device may be seen gone (45) or its link broken (2) first.
        EXPECT_TRUE(final->code == 2 || final->code == 45) << "round " << round << ": " << final->code;
        EXPECT_TRUE(fs::is_empty(root)) << "round " << round;  // the partial backup is gone
        if (pull) {
            ASSERT_EQ(sim->control("attach " + udid).rfind("ok", 0), 0u);
            ASSERT_TRUE(worker->waitForReady(udid).has_value());
        }
    }
    const zparent::BackupOutcome next = backup((scratch / "next" / "").string());
    EXPECT_EQ(next.code, 0) << next.error;
}

// A folder that cannot be made ends the backup at once, before the device
// is asked, so the device's next backup does not wait behind it.
TEST_F(BackupCommands, AFolderThatCannotBeMadeEndsTheBackupAtOnce) {
    start("iphone13-ios17-noapps", kNoAppsUdid);
    std::ofstream(scratch / "file") << "a file";
    fs::create_symlink(scratch / "loop", scratch / "loop");
    const fs::path roots[] = {scratch / "file", scratch / "loop" / "inside", scratch / std::string(5000, 'x')};
    for (const fs::path& root : roots) {
        zparent::CommandRun run;
        run.taskId = worker->nextTaskId();
        run.idleTimeout = std::chrono::seconds(20);  // a backup that waits on the device would pass it
        const zparent::BackupOutcome outcome = zparent::runBackup(worker->link, run, udid, (root / "").string());
        EXPECT_EQ(outcome.code, 2) << root.string().substr(0, 80);
        EXPECT_EQ(outcome.error, "Task error.");
        EXPECT_FALSE(outcome.folder.empty());
        EXPECT_TRUE(outcome.progress.empty());
    }
    EXPECT_EQ(fileBytes(scratch / "file"), "a file");
    const zparent::BackupOutcome next = backup((scratch / "next" / "").string());
    EXPECT_EQ(next.code, 0) << next.error;
}

}  // namespace
