// Command 1700: a device's media emptied, its apps removed and a prepared
// backup restored over what is left, with the progress a parent shows.
#include "backup_fixture.h"

#include <fstream>

namespace fs = std::filesystem;

namespace {

constexpr char kNoAppsUdid[] = "00008110-001A2B3C4D5E6000";

std::vector<int64_t> valuesOfStage(const zparent::LongCommandOutcome& outcome, int32_t stage) {
    std::vector<int64_t> values;
    for (const auto& step : outcome.progress)
        if (step.stage == stage) values.push_back(step.value);
    return values;
}

// The stages in the order they came, each once.
std::vector<int32_t> stageOrder(const zparent::LongCommandOutcome& outcome) {
    std::vector<int32_t> order;
    for (const auto& step : outcome.progress)
        if (order.empty() || order.back() != step.stage) order.push_back(step.stage);
    return order;
}

const std::vector<int64_t> kFolderSteps{4,  8,  13, 17, 21, 26, 30, 34, 39, 43, 47, 52,
                                        56, 60, 65, 69, 73, 78, 82, 86, 91, 95, 100};

void plant(const fs::path& file) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << "user content";
}

}  // namespace

TEST_F(BackupCommands, AnEraseEmptiesTheMediaRemovesEveryAppAndRestoresThePreparedBackup) {
    startDevices({"--builtin", "--profile", e2e::profileDir("iphone13-ios17-noapps")}, {kBuiltinUdid, kNoAppsUdid});
    const fs::path prepared = stockBackup(kNoAppsUdid, "prepared");
    const size_t appsBefore = userApps(udid).size();
    ASSERT_GT(appsBefore, 0u);
    const fs::path media = mediaRoot(udid);
    plant(media / "DCIM/100APPLE/IMG_9999.JPG");
    plant(media / "Downloads/deep/inside.txt");
    plant(media / "iTunes_Control/Music/F00/song.mp3");
    plant(media / "Kept/not-in-the-list.txt");

    const zparent::LongCommandOutcome outcome = erase(prepared.string(), kNoAppsUdid);
    EXPECT_TRUE(zparent::restoreCompleted(outcome.code)) << outcome.code << " " << outcome.error;
    EXPECT_EQ(stageOrder(outcome), (std::vector<int32_t>{0, 2, 1}));
    EXPECT_EQ(valuesOfStage(outcome, 0), kFolderSteps);
    const std::vector<int64_t> apps = valuesOfStage(outcome, 2);
    EXPECT_EQ(apps.size(), appsBefore);
    EXPECT_EQ(apps.back(), 100);
    EXPECT_FALSE(valuesOfStage(outcome, 1).empty());

    EXPECT_TRUE(userApps(udid).empty());
    for (const char* gone : {"DCIM/100APPLE/IMG_9999.JPG", "Downloads/deep", "iTunes_Control/Music/F00"})
        EXPECT_FALSE(fs::exists(media / gone)) << gone;
    for (const char* kept : {"DCIM", "Downloads", "iTunes_Control", "Books", "Kept/not-in-the-list.txt"})
        EXPECT_TRUE(fs::exists(media / kept)) << kept;
}

TEST_F(BackupCommands, AnEraseOfAnEmptyDeviceStillShowsEveryStepAndAMissingKeyComesLast) {
    start("iphone13-ios17-noapps", kNoAppsUdid);
    const fs::path prepared = stockBackup(udid, "prepared");
    const zparent::LongCommandOutcome outcome = erase(prepared.string(), udid);
    EXPECT_TRUE(zparent::restoreCompleted(outcome.code)) << outcome.code << " " << outcome.error;
    EXPECT_EQ(valuesOfStage(outcome, 0), kFolderSteps);
    EXPECT_EQ(valuesOfStage(outcome, 2), std::vector<int64_t>{100});

    // Without a password the content is gone all the same; the restore then
    // refuses.
    plant(mediaRoot(udid) / "DCIM/100APPLE/IMG_9999.JPG");
    std::vector<zparent::Event> events = worker->run(
        1700, zparent::jsonStringObject({{"uuid", udid}, {"path", prepared.string()}, {"sourceDeviceId", udid}}),
        std::nullopt, std::chrono::seconds(60));
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back().code, 21);
    EXPECT_EQ(zparent::finalErrorText(events.back()), "ParameterError");
    EXPECT_FALSE(fs::exists(mediaRoot(udid) / "DCIM/100APPLE/IMG_9999.JPG"));
}

TEST_F(BackupCommands, AnEraseForNoDeviceSaysNothingAndABrokenCommandGetsTwentyOne) {
    start("iphone13-ios17-noapps", kNoAppsUdid);
    const uint64_t unknown = worker->nextTaskId();
    ASSERT_TRUE(worker->link.sendCommand(unknown, 1700, zparent::uuidJson("00008110-FFFFFFFFFFFFFFFF")));
    ASSERT_TRUE(worker->link.sendCommand(unknown + 1, 1701, "{\"level\":1}"));
    const std::vector<zparent::Event> broken = worker->run(1701, "{not json");
    ASSERT_FALSE(broken.empty());
    EXPECT_EQ(broken.back().code, 21);
    EXPECT_EQ(broken.back().uuid, "");
    for (const zparent::Event& event : worker->drain(std::chrono::milliseconds(500)))
        EXPECT_TRUE(event.frame.taskId != unknown && event.frame.taskId != unknown + 1) << zparent::describeEvent(event);
}
