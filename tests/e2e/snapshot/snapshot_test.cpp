// The snapshot through the worker's device layer: the message database
// comes into the work folder and the device object names it; a file the
// device does not have gives 46.
#include "zeb_module_itunes.h"
#include "zeb_provider_world.h"
#include "zeb_settings.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

ProviderWorld& world = ProviderWorld::Get();

const char kMessages[] = "3d0d7e5fb2ce288813306e4d4636395e047a3d28";

class Snapshot : public ::testing::Test {
protected:
    void SetUp() override {
        logDir_ = fs::temp_directory_path() / ("zeb-snapshot-" + std::to_string(getpid()));
        zeb::Settings settings = zeb::settings();
        settings.logDir = logDir_ / "";
        zeb::setSettings(settings);
    }
    void TearDown() override { fs::remove_all(logDir_); }
    fs::path logDir_;
};

TEST_F(Snapshot, TheMessageDatabaseComesAndAMissingFileGives46) {
    ZEBDevice device(world.trustedIphone);
    device.udid = "00008110-001A2B3C4D5E601E";
    device.state = kDeviceReady;
    ZEBModuleiTunes module;

    const std::string name = kMessages;
    TaskResult result = module.snapshotBackup(device, nullptr, {name, name + "-shm", name + "-wal"});
    ASSERT_EQ(result.code, 0) << result.text;
    ASSERT_FALSE(device.staged_sms_db.empty());
    EXPECT_EQ(fs::path(device.staged_sms_db).filename(), name);
    EXPECT_EQ(device.staged_sms_db.rfind(logDir_.string(), 0), 0u) << device.staged_sms_db;
    std::ifstream database(device.staged_sms_db, std::ios::binary);
    char header[16] = {0};
    database.read(header, sizeof header);
    EXPECT_EQ(std::string(header, 15), "SQLite format 3");

    TaskResult missing = module.snapshotBackup(device, nullptr, {"no-such-file-in-any-backup"});
    EXPECT_EQ(missing.code, 46);
}

TEST_F(Snapshot, ACancelledTaskEndsBeforeTheDeviceIsAsked) {
    ZEBDevice device(world.trustedIphone);
    device.udid = "00008110-001A2B3C4D5E601E";
    device.state = kDeviceReady;
    DhTask task;
    task.state = kTaskCancelled;
    TaskResult result = ZEBModuleiTunes().snapshotBackup(device, &task, {kMessages});
    EXPECT_EQ(result.code, 6);
    EXPECT_EQ(result.text, "Task cancelled.");
}

}  // namespace
