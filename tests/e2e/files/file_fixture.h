// A simulator with the built-in device, a worker, and the device ready;
// helpers to put files on the device's media partition and read them back.
#pragma once

#include "sim_harness.h"
#include "zeb_parent_transfer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>

class FileCommands : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // The device's media partition as the simulator keeps it.
    std::filesystem::path media() const;
    void putOnDevice(const std::string& devicePath, const std::string& bytes);
    std::string readOnDevice(const std::string& devicePath) const;
    bool onDevice(const std::string& devicePath) const;
    // A fresh local folder for this test.
    std::filesystem::path local() const { return localDir; }

    std::unique_ptr<e2e::Simulator> sim;
    std::unique_ptr<e2e::Worker> worker;
    // Set before SetUp: the worker's extra environment.
    std::map<std::string, std::string> workerEnvironment;
    std::string udid;
    std::filesystem::path localDir;
    uint64_t nextTask = 1000;
};

// Bytes that differ from piece to piece, so that a misplaced piece shows.
std::string patternBytes(size_t size, unsigned seed = 7);
std::string readLocal(const std::filesystem::path& path);
void writeLocal(const std::filesystem::path& path, const std::string& bytes);
std::string commandWithStage(const std::string& udid, int stage);
