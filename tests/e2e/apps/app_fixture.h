// A simulator with one app profile, the worker as its parent's child, and
// helpers that run app commands and ask the stock tools what they see.
#pragma once

#include "sim_harness.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

inline constexpr char kApps23[] = "iphone13-ios17-apps23";
inline constexpr char kApps23Udid[] = "00008110-001A2B3C4D5E6023";
inline constexpr char kNoApps[] = "iphone13-ios17-noapps";
inline constexpr char kNoAppsUdid[] = "00008110-001A2B3C4D5E6000";

class AppCommands : public ::testing::Test {
protected:
    void TearDown() override;
    // Starts the simulator on a profile folder and waits for the device.
    void start(const std::string& profileFolder, const std::string& expectedUdid);

    // Sends one app command and collects its events up to its report (the
    // report is the last element). Progress events that end an item with
    // packetStatus 6 carry code 0, so they are not taken for the report.
    std::vector<zparent::Event> run(uint32_t command, const std::optional<std::string>& tail,
                                    std::chrono::seconds timeout = std::chrono::seconds(60));
    // ideviceinstaller against the same simulator; its standard output.
    std::string stockTool(const std::string& arguments) const;
    // A package built by make_test_ipa; its path.
    std::string makeIpa(const std::string& name, const std::string& arguments) const;
    std::string scratch() const;

    std::unique_ptr<e2e::Simulator> sim;
    std::unique_ptr<e2e::Worker> worker;
    // Set before start: the worker's extra environment.
    std::map<std::string, std::string> workerEnvironment;
    std::string udid;
};

bool isAppReport(const zparent::Event& event);
rapidjson::Document parseJson(const std::string& text);
std::string jsonArray(const std::vector<std::string>& items);
std::string shellRun(const std::string& command);
