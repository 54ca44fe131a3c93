// Command-line options of zebrelo-sim.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zsim {

struct Options {
    std::string socketPath;
    std::string controlPath;
    std::vector<std::filesystem::path> profiles;
    bool builtin = false;
    std::filesystem::path stateDir;
    bool stateIsTemporary = false;
    bool help = false;
};

// Fills `options`; a missing --state becomes a fresh temporary folder.
bool parseOptions(int argc, char** argv, Options& options, std::string& error);
const char* usageText();

}  // namespace zsim
