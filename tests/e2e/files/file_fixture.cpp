#include "file_fixture.h"

#include <fstream>
#include <sstream>

namespace fs = std::filesystem;
using zparent::Event;

void FileCommands::SetUp() {
    sim = std::make_unique<e2e::Simulator>();
    ASSERT_TRUE(sim->ready());
    worker = std::make_unique<e2e::Worker>(*sim, 0, workerEnvironment);
    ASSERT_TRUE(worker->connected());
    auto ready = worker->waitFor([](const Event& e) { return e.frame.commandType == 1; });
    ASSERT_TRUE(ready);
    udid = ready->uuid;
    char pattern[] = "/tmp/zeb-e2e-files-XXXXXX";
    localDir = mkdtemp(pattern);
}

void FileCommands::TearDown() {
    worker.reset();
    sim.reset();
    std::error_code error;
    if (!localDir.empty()) fs::remove_all(localDir, error);
}

fs::path FileCommands::media() const { return fs::path(sim->folder) / "state" / udid / "media"; }

void FileCommands::putOnDevice(const std::string& devicePath, const std::string& bytes) {
    fs::path path = media() / devicePath.substr(devicePath.find_first_not_of('/'));
    fs::create_directories(path.parent_path());
    writeLocal(path, bytes);
}

std::string FileCommands::readOnDevice(const std::string& devicePath) const {
    return readLocal(media() / devicePath.substr(devicePath.find_first_not_of('/')));
}

bool FileCommands::onDevice(const std::string& devicePath) const {
    return fs::exists(media() / devicePath.substr(devicePath.find_first_not_of('/')));
}

std::string patternBytes(size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    uint32_t state = seed * 2654435761u + 1;
    for (size_t i = 0; i < size; ++i) {
        state = state * 1103515245u + 12345u;
        bytes[i] = static_cast<char>(state >> 23);
    }
    return bytes;
}

std::string readLocal(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeLocal(const fs::path& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string commandWithStage(const std::string& udid, int stage) {
    return "{\"uuid\":\"" + udid + "\",\"code\":0,\"stage\":" + std::to_string(stage) + "}";
}
