// Command 1700: a device's media emptied, its apps removed and a prepared
// backup restored over what is left, with the progress a parent shows.
#include "backup_fixture.h"

#include <atomic>
#include <fstream>
#include <thread>

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

namespace {

constexpr char kPartitionProfile[] = "iphone13-ios17-partition256m";

bool present(const fs::path& path) {
    std::error_code error;
    return fs::exists(path, error);
}

}  // namespace

class FreeSpaceFill : public BackupCommands {
protected:
    void startPartition() {
        const std::string partition = e2e::profileDir(kPartitionProfile);
        plist_t profile = readPlistFile(fs::path(partition) / "profile.plist");
        ASSERT_NE(profile, nullptr);
        const std::string device = plistText(plist_dict_get_item(profile, "Values"), "UniqueDeviceID");
        plist_free(profile);
        ASSERT_FALSE(device.empty());
        startDevices({"--profile", partition}, {device});
    }
    zparent::LongCommandOutcome fill(int64_t level, const std::atomic<bool>* interrupted = nullptr) {
        zparent::CommandRun run;
        run.taskId = worker->nextTaskId();
        run.idleTimeout = std::chrono::seconds(60);
        run.interrupted = interrupted;
        return zparent::runFillFreeSpace(worker->link, run, udid, level);
    }
    // Bytes of every file below the media partition.
    uint64_t usedBytes() const {
        uint64_t total = 0;
        std::error_code error;
        for (fs::recursive_directory_iterator it(mediaRoot(udid), error), end; !error && it != end; it.increment(error))
            if (it->is_regular_file(error)) total += it->file_size(error);
        return total;
    }
};

TEST_F(FreeSpaceFill, OnePassRunsToAHundredTwoPassesSplitTheWayAndTheSpaceComesBack) {
    startPartition();
    const uint64_t before = usedBytes();

    const zparent::LongCommandOutcome once = fill(1);
    EXPECT_EQ(once.code, 0) << once.error;
    std::vector<int64_t> values = valuesOfStage(once, 0);
    ASSERT_FALSE(values.empty());
    EXPECT_EQ(values.back(), 100);
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    EXPECT_FALSE(present(mediaRoot(udid) / "iostemp"));
    EXPECT_EQ(usedBytes(), before);

    const zparent::LongCommandOutcome twice = fill(2);
    EXPECT_EQ(twice.code, 0) << twice.error;
    values = valuesOfStage(twice, 0);
    ASSERT_GE(values.size(), 2u);
    EXPECT_NE(std::find(values.begin(), values.end(), 50), values.end()) << "the first pass ends at 50";
    EXPECT_EQ(values.back(), 100);
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    EXPECT_FALSE(present(mediaRoot(udid) / "iostemp"));

    // Three levels still make two passes: 1..34, then 51..84.
    values = valuesOfStage(fill(3), 0);
    ASSERT_FALSE(values.empty());
    EXPECT_EQ(values.back(), 84);
    EXPECT_NE(std::find(values.begin(), values.end(), 34), values.end());

    // No level, no pass: too little written.
    EXPECT_EQ(fill(0).code, 2);
    EXPECT_EQ(usedBytes(), before);
}

TEST_F(FreeSpaceFill, ACancelInTheMiddleEndsWithSixAndLeavesNoFillFile) {
    startPartition();
    const uint64_t before = usedBytes();
    const fs::path folder = mediaRoot(udid) / "iostemp";
    std::atomic<bool> interrupted{false};
    // Once the first fill file is open the device is stalled: it holds every
    // request, and the cancel is in before the next write is answered.
    auto fillFileOpen = [&] {
        std::error_code error;
        return present(folder) && !fs::is_empty(folder, error);
    };
    std::thread canceller([&] {
        for (int i = 0; i < 1000 && !fillFileOpen(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(2));
        sim->control("stall " + udid + " on");
        interrupted = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        sim->control("stall " + udid + " off");
    });
    const zparent::LongCommandOutcome cancelled = fill(2, &interrupted);
    canceller.join();
    EXPECT_EQ(cancelled.code, 6) << cancelled.error;
    EXPECT_EQ(cancelled.error, "Task cancelled.");
    EXPECT_FALSE(present(folder));
    EXPECT_EQ(usedBytes(), before);
    EXPECT_EQ(fill(1).code, 0) << "the next fill runs";
}
