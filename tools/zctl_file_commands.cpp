#include "zctl_file_commands.h"
#include "zctl_text.h"
#include "zeb_parent_commands.h"

#include "zeb_parent_transfer.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace zctl {

namespace {


struct Arguments {
    std::vector<std::string> plain;
    bool resume = false;
    std::string to;
};

bool splitArguments(const std::vector<std::string>& words, Arguments& arguments) {
    for (size_t i = 1; i < words.size(); ++i) {
        if (words[i] == "--resume") {
            arguments.resume = true;
        } else if (words[i] == "--to") {
            if (i + 1 >= words.size()) return false;
            arguments.to = words[++i];
        } else {
            arguments.plain.push_back(words[i]);
        }
    }
    return true;
}

bool waitReady(zparent::ParentLink& link, const std::string& udid, const FileOptions& options) {
    if (!zparent::waitForReady(link, udid, std::chrono::seconds(options.timeoutSeconds), options.interrupted).empty())
        return true;
    fprintf(stderr, "zebrelo-ctl: device %s did not become ready\n", udid.c_str());
    return false;
}

// A one-line bar on stderr: done, total, rate since the start, time left.
class ProgressBar {
public:
    explicit ProgressBar(bool enabled) : enabled(enabled && isatty(STDERR_FILENO)), start(Clock::now()) {}

    void update(int64_t done, int64_t total) {
        if (startBytes < 0) startBytes = done;
        auto now = Clock::now();
        if (done < total && now - lastDraw < 100ms) return;
        lastDraw = now;
        double seconds = std::chrono::duration<double>(now - start).count();
        double rate = seconds > 0 ? static_cast<double>(done - startBytes) / seconds : 0;
        double fraction = total > 0 ? static_cast<double>(done) / static_cast<double>(total) : 1;
        const std::string left = clockText(rate > 0 ? static_cast<double>(total - done) / rate : -1);
        std::string bar(30, ' ');
        for (int i = 0; i < static_cast<int>(fraction * 30); ++i) bar[i] = '#';
        if (enabled)
            fprintf(stderr, "\r[%s] %3d%% %s / %s  %s/s  %s left ", bar.c_str(), static_cast<int>(fraction * 100),
                    sizeText(static_cast<double>(done)).c_str(), sizeText(static_cast<double>(total)).c_str(),
                    sizeText(rate).c_str(), left.c_str());
        lastDone = done;
        lastTotal = total;
    }

    void finish() {
        if (enabled) fprintf(stderr, "\n");
        double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        double moved = static_cast<double>(lastDone - std::max<int64_t>(startBytes, 0));
        fprintf(stderr, "zebrelo-ctl: %s of %s in %.1f s (%s/s)\n", sizeText(moved).c_str(),
                sizeText(static_cast<double>(lastTotal)).c_str(), seconds,
                sizeText(seconds > 0 ? moved / seconds : 0).c_str());
    }

private:
    bool enabled;
    Clock::time_point start, lastDraw{};
    int64_t startBytes = -1, lastDone = 0, lastTotal = 0;
};

zparent::TransferOptions transferOptions(const FileOptions& options, ProgressBar& bar, bool resume) {
    zparent::TransferOptions transfer;
    transfer.pieceTimeout = std::chrono::seconds(std::max(options.timeoutSeconds, 5));
    transfer.interrupted = options.interrupted;
    transfer.resume = resume;
    transfer.progress = [&bar](int64_t done, int64_t total) { bar.update(done, total); };
    return transfer;
}

int reportTransfer(const zparent::TransferResult& result, const char* what, const std::string& where) {
    if (result.ok) {
        if (result.skipped > 0)
            fprintf(stderr, "zebrelo-ctl: resumed: %s were already in place\n",
                    sizeText(static_cast<double>(result.skipped)).c_str());
        printf("%s\n", where.c_str());
        return 0;
    }
    fprintf(stderr, "zebrelo-ctl: %s failed: %s\n", what, result.error.c_str());
    return result.cancelled ? 130 : 1;
}

int list(zparent::ParentLink& link, const Arguments& args, const FileOptions& options) {
    auto listing = zparent::listFolder(link, 1, args.plain[0], args.plain[1], std::chrono::seconds(options.timeoutSeconds));
    if (listing.code != 0) {
        const char* why = listing.code == 60 ? "no such folder" : listing.code == 8 ? "refused path" :
                          listing.code == 12 ? "the device's file service did not start" :
                          listing.code == 7 ? "no such device" : listing.code < 0 ? "no answer" : "error";
        fprintf(stderr, "zebrelo-ctl: ls %s: %s (code %lld)\n", args.plain[1].c_str(), why,
                static_cast<long long>(listing.code));
        return 1;
    }
    for (const auto& entry : listing.entries) {
        char when[32] = "";
        time_t seconds = static_cast<time_t>(entry.mtime);
        struct tm local {};
        if (localtime_r(&seconds, &local)) strftime(when, sizeof when, "%Y-%m-%d %H:%M", &local);
        if (options.json) {
            printf("{\"name\":\"%s\",\"type\":\"%s\",\"size\":%lld,\"mtime\":%lld}\n", entry.name.c_str(),
                   entry.type.c_str(), static_cast<long long>(entry.size), static_cast<long long>(entry.mtime));
            continue;
        }
        printf("%-6s %12lld  %s  %s%s%s\n", entry.type.c_str(), static_cast<long long>(entry.size), when,
               entry.name.c_str(), entry.type == "link" ? " -> " : "", entry.target.c_str());
    }
    return 0;
}

int pull(zparent::ParentLink& link, const Arguments& args, const FileOptions& options) {
    const std::string& devicePath = args.plain[1];
    fs::path local = args.plain.size() > 2 ? fs::path(args.plain[2]) : fs::path(devicePath).filename();
    if (local.empty()) local = "pulled";
    ProgressBar bar(true);
    auto result = zparent::pullFile(link, 1, args.plain[0], devicePath, local, transferOptions(options, bar, args.resume));
    bar.finish();
    if (!result.ok && fs::exists(zparent::partialRecordPath(local)))
        fprintf(stderr, "zebrelo-ctl: the pieces so far are kept in %s; --resume continues\n",
                zparent::partialPath(local).c_str());
    return reportTransfer(result, "pull", local.string());
}

int push(zparent::ParentLink& link, const Arguments& args, const FileOptions& options) {
    std::string folder = args.plain[2];
    if (folder.empty() || folder.back() != '/') folder.push_back('/');
    ProgressBar bar(true);
    zparent::PushTarget target{folder, "", -1};
    // The device keeps an interrupted upload's temporary and state files
    // (after a crash or an unplugging) and resumes from them by itself.
    auto result = zparent::pushFile(link, 1, args.plain[0], args.plain[1], target,
                                    transferOptions(options, bar, args.resume));
    bar.finish();
    return reportTransfer(result, "push", folder + fs::path(args.plain[1]).filename().string());
}

int copy(zparent::ParentLink& link, const Arguments& args, const FileOptions& options) {
    std::vector<zparent::CopyRequest> items;
    for (size_t i = 1; i < args.plain.size(); ++i) {
        std::string name = fs::path(args.plain[i]).stem().string();
        items.push_back({name.empty() ? "item" : name, args.plain[i], args.to});
    }
    auto result = zparent::copyItems(link, 1, args.plain[0], items, std::chrono::seconds(options.timeoutSeconds * 20));
    for (const auto& path : result.copied) printf("%s\n", path.c_str());
    if (result.code != 0) {
        fprintf(stderr, "zebrelo-ctl: copy ended with code %lld%s\n", static_cast<long long>(result.code),
                result.code == 8 ? " (a path was refused or the request was malformed)" : "");
        return 1;
    }
    return result.copied.size() == items.size() ? 0 : 1;
}

}  // namespace

bool isFileVerb(const std::string& verb) { return verb == "ls" || verb == "pull" || verb == "push" || verb == "copy"; }

int runFileVerb(zparent::ParentLink& link, const std::string& verb, const FileOptions& options) {
    Arguments args;
    bool shaped = splitArguments(options.words, args);
    size_t needed = verb == "ls" ? 2 : verb == "pull" ? 2 : verb == "push" ? 3 : 2;
    if (!shaped || args.plain.size() < needed || (verb == "copy" && args.to.empty())) {
        fprintf(stderr,
                "usage: zebrelo-ctl ls UDID PATH\n"
                "       zebrelo-ctl pull UDID DEVICE-PATH [LOCAL] [--resume]\n"
                "       zebrelo-ctl push UDID LOCAL DEVICE-FOLDER\n"
                "       zebrelo-ctl copy UDID DEVICE-PATH... --to FOLDER\n");
        return 2;
    }
    if (!waitReady(link, args.plain[0], options)) return 1;
    if (verb == "ls") return list(link, args, options);
    if (verb == "pull") return pull(link, args, options);
    if (verb == "push") return push(link, args, options);
    return copy(link, args, options);
}

}  // namespace zctl
