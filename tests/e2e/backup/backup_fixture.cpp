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

void BackupCommands::startDevices(const std::vector<std::string>& simArguments, const std::vector<std::string>& udids) {
    sim = std::make_unique<e2e::Simulator>(simArguments);
    ASSERT_TRUE(sim->ready());
    worker = std::make_unique<e2e::Worker>(*sim);
    ASSERT_TRUE(worker->connected());
    for (const std::string& device : udids)
        ASSERT_TRUE(worker->waitForReady(device).has_value()) << device << " never became ready";
    udid = udids.front();
}

zparent::LongCommandOutcome BackupCommands::restore(const std::string& folder, const std::string& source,
                                                    const std::string& password) {
    zparent::CommandRun run;
    run.taskId = worker->nextTaskId();
    run.idleTimeout = std::chrono::seconds(60);
    return zparent::runRestore(worker->link, run, udid, {folder, source, password});
}

zparent::LongCommandOutcome BackupCommands::erase(const std::string& folder, const std::string& source,
                                                  const std::string& password) {
    zparent::CommandRun run;
    run.taskId = worker->nextTaskId();
    run.idleTimeout = std::chrono::seconds(60);
    return zparent::runErase(worker->link, run, udid, {folder, source, password});
}

fs::path BackupCommands::stockBackup(const std::string& device, const std::string& name) {
    const fs::path root = scratch / name;
    fs::create_directories(root);
    int status = -1;
    const std::string output = stockTool("-u " + device + " backup --full " + root.string(), &status);
    EXPECT_EQ(status, 0) << output;
    return root / device / "";
}

fs::path BackupCommands::mediaRoot(const std::string& device) const {
    return fs::path(sim->folder) / "state" / device / "media";
}

std::vector<std::string> BackupCommands::userApps(const std::string& device) const {
    std::vector<std::string> apps;
    const std::string listed = stockTool("-u " + device + " -l", nullptr, IDEVICEINSTALLER);
    size_t start = listed.find('\n');  // the header line
    while (start != std::string::npos && start + 1 < listed.size()) {
        const size_t end = listed.find('\n', start + 1);
        const std::string line = listed.substr(start + 1, end == std::string::npos ? std::string::npos : end - start - 1);
        if (!line.empty()) apps.push_back(line.substr(0, line.find(',')));
        start = end;
    }
    std::sort(apps.begin(), apps.end());
    return apps;
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

std::string BackupCommands::stockTool(const std::string& arguments, int* status, const char* tool) const {
    const std::string command = "USBMUXD_SOCKET_ADDRESS=UNIX:" + sim->socketPath() + " timeout 120 " + tool + " " +
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
