#include "zctl_restore_commands.h"

#include "zeb_parent_restore.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>

namespace fs = std::filesystem;

namespace zctl {

namespace {

// A device writes a fill file or restores a large file for a while between
// two figures; the worker is silent meanwhile.
constexpr int kLongSilenceSeconds = 300;

const char* stageName(const std::string& verb, int32_t stage) {
    if (verb == "wipe-free") return "overwriting free space";
    if (verb == "restore") return "restoring";
    switch (stage) {
        case 0: return "emptying media folders";
        case 2: return "removing apps";
        default: return "restoring";
    }
}

const char* codeText(int64_t code) {
    switch (code) {
        case 0: return "ok";
        case 2: return "the conversation with the device broke, or too little was written";
        case 6: return "cancelled";
        case 7: return "no such device";
        case 12: return "the device's backup service did not start";
        case 14: return "the device's installation service did not start";
        case 17: return "the device's file service did not start, or a fill file would not open";
        case 21: return "the command lacks a required value";
        case 42: return "the backup folder has no readable Manifest.plist";
        case 45: return "the device ended the restore";
        case 47: return "the fill folder could not be made on the device";
        case -1: return "no answer from the worker";
        default: return "the device reported an error";
    }
}

// One line that redraws itself: the stage and its figure. Restore figures
// are hundredths of a percent, the others whole percents.
class StageBar {
public:
    explicit StageBar(std::string verb) : verb_(std::move(verb)), enabled_(isatty(STDERR_FILENO)) {}

    void update(const zparent::StagedProgress& step) {
        const bool hundredths = step.stage == 1 || verb_ == "restore";
        const double percent = hundredths ? static_cast<double>(step.value) / 100.0 : static_cast<double>(step.value);
        std::string bar(30, ' ');
        std::fill_n(bar.begin(), std::clamp(static_cast<int>(percent * 0.3), 0, 30), '#');
        if (enabled_) {
            fprintf(stderr, "\r%-24s [%s] %6.2f%%", stageName(verb_, step.stage), bar.c_str(), percent);
        } else if (step.stage != lastStage_) {
            fprintf(stderr, "zebrelo-ctl: %s\n", stageName(verb_, step.stage));
        }
        lastStage_ = step.stage;
    }

    void finish() {
        if (enabled_ && lastStage_ >= 0) fprintf(stderr, "\n");
    }

private:
    std::string verb_;
    bool enabled_;
    int32_t lastStage_ = -1;
};

// --name VALUE pairs and bare flags after the verb's positional words.
struct Flags {
    std::vector<std::string> positional;
    std::map<std::string, std::string> values;
    bool yes = false;
};

bool parseFlags(const std::vector<std::string>& words, Flags& flags) {
    for (size_t i = 1; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word == "--yes") {
            flags.yes = true;
        } else if (word.rfind("--", 0) == 0) {
            if (i + 1 >= words.size()) return false;
            flags.values[word.substr(2)] = words[++i];
        } else {
            flags.positional.push_back(word);
        }
    }
    return true;
}

std::string flag(const Flags& flags, const char* name, const std::string& otherwise = {}) {
    auto found = flags.values.find(name);
    return found == flags.values.end() ? otherwise : found->second;
}

// FOLDER may be the backup itself or the folder that holds "<source>/".
std::string backupFolder(const std::string& folder, const std::string& source) {
    std::error_code error;
    if (fs::exists(fs::path(folder) / source / "Manifest.plist", error)) return (fs::path(folder) / source / "").string();
    return (fs::path(folder) / "").string();
}

bool confirmed(const std::string& udid) {
    fprintf(stderr,
            "This removes the photos, media and apps of %s and restores the backup over what is left.\n"
            "Type 'yes' to go on: ",
            udid.c_str());
    std::string answer;
    return std::getline(std::cin, answer) && answer == "yes";
}

int usage() {
    fprintf(stderr,
            "zebrelo-ctl: usage: restore UDID FOLDER [--source UDID] [--password P] | "
            "erase UDID --backup FOLDER --source UDID [--password P] [--yes] | wipe-free UDID [--level 1|2]\n");
    return 2;
}

int finish(const std::string& verb, const zparent::LongCommandOutcome& outcome) {
    const bool done = verb == "wipe-free" ? outcome.code == 0 : zparent::restoreCompleted(outcome.code);
    if (done) {
        fprintf(stderr, "zebrelo-ctl: %s finished\n", verb.c_str());
        return 0;
    }
    fprintf(stderr, "zebrelo-ctl: %s failed with code %lld: %s%s%s\n", verb.c_str(),
            static_cast<long long>(outcome.code), codeText(outcome.code), outcome.error.empty() ? "" : ": ",
            outcome.error.c_str());
    return outcome.code == 6 ? 130 : 1;
}

}  // namespace

bool isRestoreVerb(const std::string& verb) { return verb == "restore" || verb == "erase" || verb == "wipe-free"; }

int runRestoreVerb(zparent::ParentLink& link, const std::string& verb, const BackupOptions& options) {
    Flags flags;
    if (!parseFlags(options.words, flags) || flags.positional.empty()) return usage();
    const std::string udid = flags.positional[0];
    zparent::RestoreSource source;
    source.sourceId = flag(flags, "source", udid);
    source.password = flag(flags, "password");
    if (verb == "restore") {
        if (flags.positional.size() < 2) return usage();
        source.folder = backupFolder(flags.positional[1], source.sourceId);
    } else if (verb == "erase") {
        if (!flags.values.count("backup") || !flags.values.count("source")) return usage();
        source.folder = backupFolder(flag(flags, "backup"), source.sourceId);
        if (!flags.yes && !confirmed(udid)) {
            fprintf(stderr, "zebrelo-ctl: nothing erased\n");
            return 1;
        }
    }
    if (zparent::waitForReady(link, udid, std::chrono::seconds(options.timeoutSeconds), options.interrupted).empty()) {
        fprintf(stderr, "zebrelo-ctl: device %s did not become ready\n", udid.c_str());
        return 1;
    }
    zparent::CommandRun run;
    run.idleTimeout = std::chrono::seconds(std::max(options.timeoutSeconds, kLongSilenceSeconds));
    run.interrupted = options.interrupted;
    StageBar bar(verb);
    auto progress = [&](const zparent::StagedProgress& step) { bar.update(step); };
    zparent::LongCommandOutcome outcome;
    if (verb == "restore") outcome = zparent::runRestore(link, run, udid, source, progress);
    else if (verb == "erase") outcome = zparent::runErase(link, run, udid, source, progress);
    else outcome = zparent::runFillFreeSpace(link, run, udid, atoll(flag(flags, "level", "1").c_str()), progress);
    bar.finish();
    return finish(verb, outcome);
}

}  // namespace zctl
