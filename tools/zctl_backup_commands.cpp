#include "zctl_backup_commands.h"

#include "zctl_text.h"
#include "zeb_parent_backup.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace zctl {

namespace {

const char* codeText(int64_t code) {
    switch (code) {
        case 0: return "ok";
        case 2: return "the conversation with the device broke";
        case 7: return "no such device";
        case 8: return "the worker could not read the command";
        case 12: return "the device's backup service did not start";
        case 21: return "the command lacks a required value";
        case 45: return "the device went away during the backup";
        case -1: return "no answer from the worker";
        default: return "the device reported an error";
    }
}

uint64_t folderBytes(const fs::path& folder) {
    uint64_t total = 0;
    std::error_code error;
    for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        if (it->is_regular_file(error)) total += it->file_size(error);
    return total;
}

// Percent from the device, bytes from the folder as it fills, the rate
// since the start and the time left at that pace.
class BackupBar {
public:
    explicit BackupBar(bool enabled) : enabled_(enabled && isatty(STDERR_FILENO)), start_(Clock::now()) {}

    void update(const std::string& folder, int64_t hundredths) {
        const auto now = Clock::now();
        if (hundredths < 10000 && now - lastDraw_ < std::chrono::milliseconds(250)) return;
        lastDraw_ = now;
        bytes_ = folder.empty() ? 0 : folderBytes(folder);
        const double seconds = std::chrono::duration<double>(now - start_).count();
        const double fraction = static_cast<double>(hundredths) / 10000.0;
        const double left = fraction > 0 ? seconds * (1 - fraction) / fraction : -1;
        std::string bar(30, ' ');
        for (int i = 0; i < static_cast<int>(fraction * 30); ++i) bar[i] = '#';
        if (enabled_)
            fprintf(stderr, "\r[%s] %6.2f%% %s  %s/s  %s left ", bar.c_str(), fraction * 100,
                    sizeText(static_cast<double>(bytes_)).c_str(),
                    sizeText(seconds > 0 ? static_cast<double>(bytes_) / seconds : 0).c_str(), clockText(left).c_str());
    }

    void finish(const std::string& folder) {
        if (enabled_) fprintf(stderr, "\n");
        bytes_ = folder.empty() ? 0 : folderBytes(folder);
        const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
        fprintf(stderr, "zebrelo-ctl: %s in %.1f s (%s/s)\n", sizeText(static_cast<double>(bytes_)).c_str(), seconds,
                sizeText(seconds > 0 ? static_cast<double>(bytes_) / seconds : 0).c_str());
    }

private:
    bool enabled_;
    Clock::time_point start_, lastDraw_{};
    uint64_t bytes_ = 0;
};

zparent::CommandRun commandRun(const BackupOptions& options) {
    zparent::CommandRun run;
    run.idleTimeout = std::chrono::seconds(options.timeoutSeconds);
    run.interrupted = options.interrupted;
    return run;
}

int makeBackup(zparent::ParentLink& link, const std::string& udid, const std::string& folder,
               const BackupOptions& options) {
    BackupBar bar(true);
    const zparent::BackupOutcome outcome =
        zparent::runBackup(link, commandRun(options), udid, folder,
                           [&](int64_t hundredths, const std::string& made) { bar.update(made, hundredths); });
    bar.finish(outcome.folder);
    if (outcome.code != 0) {
        fprintf(stderr, "zebrelo-ctl: the backup failed with code %lld: %s%s%s\n", static_cast<long long>(outcome.code),
                codeText(outcome.code), outcome.error.empty() ? "" : ": ", outcome.error.c_str());
        return 1;
    }
    printf("%s\n", outcome.folder.c_str());
    return 0;
}

int listBackups(zparent::ParentLink& link, const std::vector<std::string>& folders, const BackupOptions& options) {
    zparent::BackupListing listing = zparent::listBackups(link, commandRun(options), folders);
    if (listing.code != 0) {
        fprintf(stderr, "zebrelo-ctl: listing failed with code %lld: %s\n", static_cast<long long>(listing.code),
                codeText(listing.code));
        return 1;
    }
    printf("%-42s  %-20s  %-19s  %10s  %s\n", "DEVICE", "NAME", "DATE", "SIZE", "FOLDER");
    for (const auto& path : listing.firstSeen) {
        if (!listing.records.HasMember(path.c_str())) continue;
        const auto& record = listing.records[path.c_str()];
        auto text = [&](const char* key) { return record.HasMember(key) && record[key].IsString() ? record[key].GetString() : ""; };
        const double size = record.HasMember("Size") && record["Size"].IsNumber() ? record["Size"].GetDouble() : 0;
        printf("%-42s  %-20s  %-19s  %10s  %s%s\n", text("Unique Identifier"), text("Device Name"),
               text("Last Backup Date"), sizeText(size).c_str(), path.c_str(),
               record.HasMember("IsEncrypted") && record["IsEncrypted"].IsTrue() ? "  (encrypted)" : "");
    }
    printf("%zu backup(s)\n", listing.firstSeen.size());
    return 0;
}

// A question whose answer is the final code: 0 yes, 1 no.
int ask(zparent::ParentLink& link, uint32_t command, const std::string& json, const BackupOptions& options,
        const char* yes, const char* no) {
    const int64_t code = zparent::runCommand(link, commandRun(options), command, json, std::nullopt, {});
    if (code == 0 || code == 1) {
        printf("%s\n", code == 0 ? yes : no);
        return 0;
    }
    fprintf(stderr, "zebrelo-ctl: command %u failed with code %lld: %s\n", command, static_cast<long long>(code),
            codeText(code));
    return 1;
}

int usage() {
    fprintf(stderr, "zebrelo-ctl: usage: backup UDID [FOLDER] | backups [FOLDER...] | encryption UDID | "
                    "password UDID NEW [--old OLD] | fmip UDID\n");
    return 2;
}

}  // namespace

bool isBackupVerb(const std::string& verb) {
    return verb == "backup" || verb == "backups" || verb == "encryption" || verb == "password" || verb == "fmip";
}

int runBackupVerb(zparent::ParentLink& link, const std::string& verb, const BackupOptions& options) {
    const auto& words = options.words;
    if (verb == "backups") return listBackups(link, std::vector<std::string>(words.begin() + 1, words.end()), options);
    if (words.size() < 2) return usage();
    const std::string& udid = words[1];
    if (zparent::waitForReady(link, udid, std::chrono::seconds(options.timeoutSeconds), options.interrupted).empty()) {
        fprintf(stderr, "zebrelo-ctl: device %s did not become ready\n", udid.c_str());
        return 1;
    }
    const std::string uuid = zparent::uuidJson(udid);
    if (verb == "backup") return makeBackup(link, udid, words.size() > 2 ? words[2] : std::string(), options);
    if (verb == "encryption") return ask(link, 1604, uuid, options, "on", "off");
    if (verb == "fmip") return ask(link, 1603, uuid, options, "tied to a find-my-device account", "not tied");
    if (verb == "password" && words.size() >= 3) {
        std::string old;
        if (words.size() >= 5 && words[3] == "--old") old = words[4];
        const std::string json = "{\"uuid\":" + zparent::jsonString(udid) + ",\"password\":" +
                                 zparent::jsonString(words[2]) + ",\"oldPassword\":" + zparent::jsonString(old) + "}";
        return ask(link, 1605, json, options, "backups are encrypted", "backups are not encrypted");
    }
    return usage();
}

}  // namespace zctl
