// zebrelo-ctl: the reference parent. It starts the worker as a parent
// would and turns commands and events into a command-line tool.
#include "zctl_app_commands.h"
#include "zctl_backup_commands.h"
#include "zctl_restore_commands.h"
#include "zctl_contact_commands.h"
#include "zctl_device_commands.h"
#include "zctl_file_commands.h"
#include "zctl_sync_data_commands.h"
#include "zeb_parent_link.h"
#include "zeb_version.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

std::atomic<bool> interrupted{false};

void usage() {
    fprintf(stderr,
            "usage: zebrelo-ctl --version\n"
            "       zebrelo-ctl [options] [watch]\n"
            "       zebrelo-ctl [options] raw <command-number> '<json>' ['<tail-json>']\n"
            "       zebrelo-ctl [options] devices\n"
            "       zebrelo-ctl [options] info [UDID]\n"
            "       zebrelo-ctl [options] rename UDID NAME\n"
            "       zebrelo-ctl [options] cancel UDID TASKID\n"
            "       zebrelo-ctl [options] ls UDID PATH\n"
            "       zebrelo-ctl [options] pull UDID DEVICE-PATH [LOCAL] [--resume]\n"
            "       zebrelo-ctl [options] push UDID LOCAL DEVICE-FOLDER\n"
            "       zebrelo-ctl [options] copy UDID DEVICE-PATH... --to FOLDER\n"
            "       zebrelo-ctl [options] apps [UDID]\n"
            "       zebrelo-ctl [options] icons UDID ID... [--out DIR]\n"
            "       zebrelo-ctl [options] install UDID FILE.ipa...\n"
            "       zebrelo-ctl [options] uninstall UDID ID...\n"
            "       zebrelo-ctl [options] archive UDID ID...\n"
            "       zebrelo-ctl [options] contacts UDID | contacts add UDID --name NAME [--phone N]... [--email E]...\n"
            "                             | contacts remove UDID ID...\n"
            "       zebrelo-ctl [options] groups UDID | groups add UDID NAME | groups rename UDID ID NAME\n"
            "                             | groups members UDID ID [CONTACT-ID]... | groups remove UDID ID...\n"
            "       zebrelo-ctl [options] calendars UDID | calendars add UDID --title T [--event TITLE@START..END]...\n"
            "                             | calendars remove UDID ID\n"
            "       zebrelo-ctl [options] bookmarks UDID | bookmarks add UDID --title T --url U [--folder F]\n"
            "                             | bookmarks remove UDID ID\n"
            "       zebrelo-ctl [options] notes UDID | notes add UDID --title T [--body-file F]\n"
            "       zebrelo-ctl [options] backup UDID [FOLDER] | backups [FOLDER...] | encryption UDID\n"
            "                             | password UDID NEW [--old OLD] | fmip UDID\n"
            "       zebrelo-ctl [options] restore UDID FOLDER [--source UDID] [--password P]\n"
            "                             | erase UDID --backup FOLDER --source UDID [--password P] [--yes]\n"
            "                             | wipe-free UDID [--level 1|2]\n"
            "\n"
            "  watch    start the worker and print every event as one JSON line until\n"
            "           interrupted or the worker ends\n"
            "  raw      send one command and print what comes back until its final\n"
            "           report or the time-out\n"
            "  devices  list devices as they become ready, ask for trust, or leave\n"
            "  info     what a device is and what fills it (the first ready device\n"
            "           unless a UDID is given); --json prints the two objects\n"
            "  rename   give a device a new name\n"
            "  cancel   cancel a running command of a device\n"
            "  ls       list a device folder\n"
            "  pull     copy a device file here piece by piece with a progress bar;\n"
            "           --resume continues into LOCAL.part where an earlier pull stopped\n"
            "  push     copy a local file into a device folder piece by piece; an upload\n"
            "           cut off by a crash or an unplugging resumes on the device\n"
            "  copy     copy device files and folders (.epub folders as zip) into FOLDER\n"
            "  apps     the user apps: identifier, name, version, app and data size\n"
            "           (--json prints the worker's objects)\n"
            "  icons    write the apps' icons as ID.png into DIR (default .)\n"
            "  install  install .ipa packages, a progress bar per package\n"
            "  uninstall, archive   remove apps, or archive them on the device\n"
            "  contacts the device's contacts: id, name, phone numbers, emails (--json: the\n"
            "           worker's objects with every field and child); add one with its\n"
            "           numbers and addresses and print the ids the device gave; remove some\n"
            "  groups   the contact groups and their members; add, rename, set the members\n"
            "           (contact ids), remove\n"
            "  calendars, bookmarks, notes   list them (calendars with their events,\n"
            "           bookmarks as indented trees); add one; remove one by its id\n"
            "           (times as YYYY-MM-DDTHH:MM:SSZ in UTC)\n"
            "  backup   back the device up into FOLDER (default: the worker's backup folder)\n"
            "           with a progress bar; prints the folder it made\n"
            "  backups  the backups in the folders (default: the worker's backup folder)\n"
            "  encryption, fmip   whether backups are encrypted; whether the device is tied\n"
            "           to a find-my-device account\n"
            "  password set the backup password (an empty NEW turns encryption off; --old\n"
            "           gives the one set now)\n"
            "  restore  put a backup back onto the device: FOLDER is the backup or the folder\n"
            "           holding it; --source names the device that made it (default UDID)\n"
            "  erase    empty the device's photo and media folders, remove its apps, then\n"
            "           restore the prepared backup; asks first unless --yes\n"
            "  wipe-free  overwrite the free space of the media partition with zeros once\n"
            "           (--level 2: twice) and free it again; Ctrl-C cancels\n"
            "\n"
            "options:\n"
            "  --worker PATH    the worker executable (default: zebrelo beside this tool)\n"
            "  --usbmuxd PATH   reach devices through the usbmuxd socket at PATH\n"
            "  --timeout SEC    how long raw waits for the final report (default 15)\n"
            "  --log            ask the worker to keep its log folder\n"
            "  --console        let the worker print to this terminal\n"
            "  --json           print JSON instead of tables\n");
}

std::string defaultWorker() {
    std::error_code error;
    auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? "zebrelo" : (self.parent_path() / "zebrelo").string();
}

struct Options {
    zparent::WorkerOptions worker;
    int timeoutSeconds = 15;
    bool json = false;
    std::vector<std::string> words;
};

bool parseOptions(int argc, char** argv, Options& options) {
    options.worker.program = defaultWorker();
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&]() -> const char* { return i + 1 < argc ? argv[++i] : nullptr; };
        if (arg == "--worker") {
            const char* path = value();
            if (!path) return false;
            options.worker.program = path;
        } else if (arg == "--usbmuxd") {
            const char* path = value();
            if (!path) return false;
            options.worker.environment["USBMUXD_SOCKET_ADDRESS"] = std::string("UNIX:") + path;
        } else if (arg == "--timeout") {
            const char* seconds = value();
            if (!seconds) return false;
            options.timeoutSeconds = atoi(seconds);
        } else if (arg == "--log") {
            options.worker.log = true;
        } else if (arg == "--json") {
            options.json = true;
        } else if (arg == "--console") {
            options.worker.console = true;
        } else if (arg == "-h" || arg == "--help") {
            return false;
        } else {
            options.words.push_back(arg);
        }
    }
    return true;
}

// Starts the worker and waits for its connection; prints what failed.
bool bringUpLink(zparent::ParentLink& link, const Options& options) {
    if (!link.listen()) {
        fprintf(stderr, "zebrelo-ctl: cannot listen on a loopback port: %s\n", strerror(errno));
        return false;
    }
    if (access(options.worker.program.c_str(), X_OK) != 0) {
        fprintf(stderr, "zebrelo-ctl: the worker %s is not an executable file\n", options.worker.program.c_str());
        return false;
    }
    pid_t pid = link.startWorker(options.worker);
    if (pid < 0 || !link.acceptWorker(std::chrono::seconds(15))) {
        fprintf(stderr, "zebrelo-ctl: the worker %s did not connect to port %d\n", options.worker.program.c_str(), link.port());
        return false;
    }
    fprintf(stderr, "zebrelo-ctl: link up: worker pid %d connected to port %d\n", pid, link.port());
    return true;
}

int watch(zparent::ParentLink& link) {
    while (!interrupted) {
        auto event = link.nextEvent(std::chrono::milliseconds(500));
        if (event) {
            printf("%s\n", zparent::describeEvent(*event).c_str());
            fflush(stdout);
        } else if (link.closed()) {
            fprintf(stderr, "zebrelo-ctl: the worker closed the link\n");
            return 1;
        }
    }
    return 0;
}

int raw(zparent::ParentLink& link, const Options& options) {
    if (options.words.size() < 3) {
        usage();
        return 2;
    }
    char* end = nullptr;
    unsigned long number = strtoul(options.words[1].c_str(), &end, 10);
    if (*end != '\0') {
        fprintf(stderr, "zebrelo-ctl: '%s' is not a command number\n", options.words[1].c_str());
        return 2;
    }
    std::optional<std::string> tail;
    if (options.words.size() > 3) tail = options.words[3];
    const uint64_t taskId = 1;
    if (!link.sendCommand(taskId, static_cast<uint32_t>(number), options.words[2], tail)) {
        fprintf(stderr, "zebrelo-ctl: sending the command failed\n");
        return 1;
    }
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(options.timeoutSeconds);
    while (!interrupted && std::chrono::steady_clock::now() < deadline) {
        auto event = link.nextEvent(std::chrono::milliseconds(250));
        if (!event) {
            if (link.closed()) {
                fprintf(stderr, "zebrelo-ctl: the worker closed the link\n");
                return 1;
            }
            continue;
        }
        printf("%s\n", zparent::describeEvent(*event).c_str());
        fflush(stdout);
        if (event->frame.taskId == taskId && zparent::isFinalReport(*event)) return event->code == 0 ? 0 : 1;
    }
    fprintf(stderr, "zebrelo-ctl: no final report for command %lu within %d s\n", number, options.timeoutSeconds);
    return 3;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "--version") == 0) {
        printf("zebrelo-ctl %s\n", ZEBRELO_VERSION);
        return 0;
    }
    Options options;
    if (!parseOptions(argc, argv, options)) {
        usage();
        return 2;
    }
    std::string verb = options.words.empty() ? "watch" : options.words[0];
    if (verb != "watch" && verb != "raw" && !zctl::isDeviceVerb(verb) && !zctl::isFileVerb(verb) &&
        !zctl::isAppVerb(verb) && !zctl::isContactVerb(verb) && !zctl::isBackupVerb(verb) && !zctl::isRestoreVerb(verb) &&
        !zctl::isSyncDataVerb(verb)) {
        fprintf(stderr, "zebrelo-ctl: unknown command '%s'\n", verb.c_str());
        usage();
        return 2;
    }
    signal(SIGINT, [](int) { interrupted = true; });
    signal(SIGTERM, [](int) { interrupted = true; });
    signal(SIGPIPE, SIG_IGN);

    zparent::ParentLink link;
    if (!bringUpLink(link, options)) return 1;
    if (verb == "watch") return watch(link);
    if (verb == "raw") return raw(link, options);
    if (zctl::isFileVerb(verb)) {
        zctl::FileOptions fileOptions{options.words, options.timeoutSeconds, options.json, &interrupted};
        return zctl::runFileVerb(link, verb, fileOptions);
    }
    if (zctl::isAppVerb(verb)) {
        zctl::AppOptions appOptions{options.words, options.timeoutSeconds, options.json, &interrupted};
        return zctl::runAppVerb(link, verb, appOptions);
    }
    if (zctl::isSyncDataVerb(verb)) {
        zctl::SyncDataOptions syncOptions{options.words, options.timeoutSeconds, options.json, &interrupted};
        return zctl::runSyncDataVerb(link, verb, syncOptions);
    }
    if (zctl::isRestoreVerb(verb)) {
        zctl::BackupOptions restoreOptions{options.words, options.timeoutSeconds, options.json, &interrupted};
        return zctl::runRestoreVerb(link, verb, restoreOptions);
    }
    if (zctl::isBackupVerb(verb)) {
        zctl::BackupOptions backupOptions{options.words, options.timeoutSeconds, options.json, &interrupted};
        return zctl::runBackupVerb(link, verb, backupOptions);
    }
    if (zctl::isContactVerb(verb)) {
        zctl::ContactOptions contactOptions{options.words, options.timeoutSeconds, options.json, &interrupted};
        return zctl::runContactVerb(link, verb, contactOptions);
    }
    zctl::DeviceOptions deviceOptions{options.words, options.timeoutSeconds, options.json, &interrupted};
    return zctl::runDeviceVerb(link, verb, deviceOptions);
}
