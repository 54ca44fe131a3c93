// A simulator, the worker as its parent's child, backups through both and
// through the stock idevicebackup2, and what a backup folder holds.
#pragma once

#include "sim_harness.h"
#include "zeb_parent_backup.h"
#include "zeb_parent_restore.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

inline constexpr char kBuiltinUdid[] = "00008110-001A2B3C4D5E601E";

class BackupCommands : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // The simulator with one profile folder (a name under sim/profiles or a path).
    void start(const std::string& profile, const std::string& udid);

    // The simulator with these arguments (e.g. --builtin, --profile DIR),
    // the worker, and each of `udids` ready; `udid` is the first.
    void startDevices(const std::vector<std::string>& simArguments, const std::vector<std::string>& udids);

    zparent::BackupOutcome backup(const std::string& folder);
    // 1601 / 1700 onto `udid` from the backup `folder` of `source`.
    zparent::LongCommandOutcome restore(const std::string& folder, const std::string& source,
                                        const std::string& password = {});
    zparent::LongCommandOutcome erase(const std::string& folder, const std::string& source,
                                      const std::string& password = {});
    // A stock backup of `device` into scratch/<name>/; the folder of the backup itself.
    std::filesystem::path stockBackup(const std::string& device, const std::string& name);
    // The device's media partition inside the simulator's state folder.
    std::filesystem::path mediaRoot(const std::string& device) const;
    int64_t question(uint32_t command, const std::string& json);
    // idevicebackup2 against the same simulator; its output, and its status in `status`.
    std::string stockTool(const std::string& arguments, int* status = nullptr, const char* tool = IDEVICEBACKUP2) const;
    // The user apps ideviceinstaller lists, by identifier, sorted.
    std::vector<std::string> userApps(const std::string& device) const;

    std::filesystem::path scratch;  // removed with the test
    std::unique_ptr<e2e::Simulator> sim;
    std::unique_ptr<e2e::Worker> worker;
    std::string udid;
};

// A property list file, or null; the caller frees it.
plist_t readPlistFile(const std::filesystem::path& file);
std::string plistText(plist_t dict, const char* key);
// Every file below `folder` by its path relative to it.
std::vector<std::string> filesBelow(const std::filesystem::path& folder);
std::string fileBytes(const std::filesystem::path& file);
