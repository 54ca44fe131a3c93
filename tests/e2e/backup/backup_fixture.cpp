#include "backup_fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

void BackupCommands::SetUp() {
    scratch = fs::temp_directory_path() / ("zeb-backup-e2e-" + std::to_string(getpid()));
    fs::remove_all(scratch);
    fs::create_directories(scratch);
}

void BackupCommands::TearDown() {
    worker.reset();
    sim.reset();
    fs::remove_all(scratch);
}

void BackupCommands::start(const std::string& profile, const std::string& expected) {
    sim = std::make_unique<e2e::Simulator>(std::vector<std::string>{
        "--profile", fs::path(profile).is_absolute() ? profile : e2e::profileDir(profile)});
    ASSERT_TRUE(sim->ready());
    worker = std::make_unique<e2e::Worker>(*sim);
    ASSERT_TRUE(worker->connected());
    ASSERT_TRUE(worker->waitForReady(expected).has_value()) << expected << " never became ready";
    udid = expected;
}

zparent::BackupOutcome BackupCommands::backup(const std::string& folder) {
    zparent::CommandRun run;
    run.taskId = worker->nextTaskId();
    run.idleTimeout = std::chrono::seconds(60);
    return zparent::runBackup(worker->link, run, udid, folder);
}

int64_t BackupCommands::question(uint32_t command, const std::string& json) {
    zparent::CommandRun run;
    run.taskId = worker->nextTaskId();
    return zparent::runCommand(worker->link, run, command, json, std::nullopt, {});
}

std::string BackupCommands::stockTool(const std::string& arguments, int* status) const {
    const std::string command = "USBMUXD_SOCKET_ADDRESS=UNIX:" + sim->socketPath() + " timeout 120 " IDEVICEBACKUP2 " " +
                                arguments + " < /dev/null 2>&1";
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return output;
    char buffer[4096];
    size_t got;
    while ((got = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, got);
    const int raw = pclose(pipe);
    if (status) *status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return output;
}

plist_t readPlistFile(const fs::path& file) {
    const std::string bytes = fileBytes(file);
    plist_t root = nullptr;
    if (!bytes.empty()) plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    return root;
}

std::string plistText(plist_t dict, const char* key) {
    plist_t node = dict ? plist_dict_get_item(dict, key) : nullptr;
    if (!node || plist_get_node_type(node) != PLIST_STRING) return {};
    char* text = nullptr;
    plist_get_string_val(node, &text);
    std::string out = text ? text : "";
    free(text);
    return out;
}

std::vector<std::string> filesBelow(const fs::path& folder) {
    std::vector<std::string> files;
    std::error_code error;
    for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        if (it->is_regular_file(error)) files.push_back(fs::relative(it->path(), folder).string());
    std::sort(files.begin(), files.end());
    return files;
}

std::string fileBytes(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}
