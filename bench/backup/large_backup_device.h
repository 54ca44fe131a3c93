// What both backup benchmarks start from: an empty scratch folder, the
// simulator with the 2 GB backup device, and the worker with it ready.
#pragma once

#include "sim_harness.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>

inline constexpr char kLargeBackupUdid[] = "00008110-001A2B3C4D5E6B20";

struct LargeBackupDevice {
    std::filesystem::path scratch;
    std::unique_ptr<e2e::Simulator> sim;
    std::unique_ptr<e2e::Worker> worker;

    // `argv[1]`, when given, is the scratch folder. False (said on stderr)
    // when something did not come up.
    bool start(int argc, char** argv, const char* defaultScratch) {
        scratch = argc > 1 ? std::filesystem::path(argv[1]) : std::filesystem::temp_directory_path() / defaultScratch;
        std::filesystem::remove_all(scratch);
        std::filesystem::create_directories(scratch);
        sim = std::make_unique<e2e::Simulator>(std::vector<std::string>{"--profile", e2e::profileDir("iphone13-ios17-backup2g")});
        if (!sim->ready()) return fprintf(stderr, "simulator did not start\n"), false;
        worker = std::make_unique<e2e::Worker>(*sim);
        if (!worker->connected() || !worker->waitForReady(kLargeBackupUdid, std::chrono::seconds(60)))
            return fprintf(stderr, "device not ready\n"), false;
        return true;
    }
};
