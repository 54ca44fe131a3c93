#include "app_fixture.h"

#include <cstdio>
#include <filesystem>

namespace fs = std::filesystem;

bool isAppReport(const zparent::Event& event) {
    if (event.stage != 0) return false;
    const uint16_t status = event.frame.packetStatus;
    return status == 1 || status == 5 || (status == 6 && event.code != 0);
}

rapidjson::Document parseJson(const std::string& text) {
    rapidjson::Document document;
    document.Parse(text.c_str(), text.size());
    return document;
}

std::string jsonArray(const std::vector<std::string>& items) {
    std::string text = "[";
    for (size_t i = 0; i < items.size(); ++i) text += (i ? ",\"" : "\"") + items[i] + "\"";
    return text + "]";
}

std::string shellRun(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return output;
    char buffer[4096];
    size_t got;
    while ((got = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, got);
    pclose(pipe);
    return output;
}

void AppCommands::start(const std::string& profileFolder, const std::string& expectedUdid) {
    sim = std::make_unique<e2e::Simulator>(std::vector<std::string>{"--profile", profileFolder});
    ASSERT_TRUE(sim->ready());
    worker = std::make_unique<e2e::Worker>(*sim, 0, workerEnvironment);
    ASSERT_TRUE(worker->connected());
    auto ready = worker->waitForReady(expectedUdid);
    ASSERT_TRUE(ready.has_value()) << "the device never became ready";
    udid = expectedUdid;
}

void AppCommands::TearDown() {
    worker.reset();
    sim.reset();
}

std::vector<zparent::Event> AppCommands::run(uint32_t command, const std::optional<std::string>& tail,
                                             std::chrono::seconds timeout) {
    const uint64_t taskId = worker->nextTaskId();
    std::vector<zparent::Event> events;
    if (!worker->link.sendCommand(taskId, command, e2e::commandJson(udid), tail)) return events;
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        auto event = worker->waitFor([&](const zparent::Event& e) { return e.frame.taskId == taskId; }, left);
        if (!event) break;
        events.push_back(*event);
        if (isAppReport(*event)) return events;
    }
    ADD_FAILURE() << "command " << command << " gave no report";
    return events;
}

std::string AppCommands::stockTool(const std::string& arguments) const {
    return shellRun("USBMUXD_SOCKET_ADDRESS=UNIX:" + sim->socketPath() + " " IDEVICEINSTALLER " -u " + udid + " " +
                    arguments + " 2>&1");
}

std::string AppCommands::scratch() const {
    fs::path dir = fs::path(sim->folder) / "scratch";
    fs::create_directories(dir);
    return dir.string();
}

std::string AppCommands::makeIpa(const std::string& name, const std::string& arguments) const {
    const std::string path = scratch() + "/" + name;
    shellRun(std::string(ZEBRELO_MAKE_IPA) + " " + path + " " + arguments + " 2>&1");
    return path;
}
