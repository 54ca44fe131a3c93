// The worker as a process, driven by a test acting as its parent.
#include "zeb_parent_link.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

// Every test gets its own temporary folder, so log and work folders of
// parallel runs never meet.
class WorkerProcess : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/zeb-worker-test-XXXXXX";
        temp = mkdtemp(pattern);
        options.program = ZEBRELO_WORKER;
        options.logFolderName = "ZebTest";
        options.environment["TMPDIR"] = temp.string();
        options.outputFile = (temp / "worker.out").string();
        ASSERT_TRUE(link.listen());
    }
    void TearDown() override {
        link.stopWorker();
        if (stand_in > 0) {
            kill(stand_in, SIGKILL);
            waitpid(stand_in, nullptr, 0);
        }
        fs::remove_all(temp);
    }
    fs::path dayFolder() {
        fs::path root = temp / "ZebTest";
        for (const auto& entry : fs::directory_iterator(root)) return entry.path();
        return {};
    }
    // A process that plays the parent whose pid the worker watches.
    pid_t startStandInParent() {
        stand_in = fork();
        if (stand_in == 0) {
            pause();
            _exit(0);
        }
        return stand_in;
    }
    std::string workerOutput() {
        std::ifstream in(temp / "worker.out");
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    fs::path temp;
    zparent::WorkerOptions options;
    zparent::ParentLink link;
    pid_t stand_in = -1;
};

TEST_F(WorkerProcess, ConnectsAndDropsUnknownCommandsWithoutAnswerOrHarm) {
    // No usbmuxd to reach: the monitor's start failure is the one event.
    options.environment["USBMUXD_SOCKET_ADDRESS"] = "UNIX:" + (temp / "no-usbmuxd").string();
    ASSERT_GT(link.startWorker(options), 0);
    ASSERT_TRUE(link.acceptWorker(5s));
    auto failed = link.nextEvent(5s);
    ASSERT_TRUE(failed.has_value());
    EXPECT_EQ(failed->frame.commandType, 14u);
    EXPECT_EQ(failed->frame.packetStatus, 1);
    EXPECT_EQ(failed->frame.taskId, 0u);
    EXPECT_EQ(failed->code, 0);

    ASSERT_TRUE(link.sendCommand(1, 99999, "{\"uuid\":\"\"}"));
    // Garbage, a frame with an absurd length, a zero-length frame: all dropped.
    ASSERT_TRUE(link.send(std::string(100, 'j')));
    zparent::Frame absurd;
    absurd.commandType = 5;
    std::string bytes = zparent::encodeFrame(absurd);
    bytes[28 + 5] = 0x7F;  // payload length around 2^47
    ASSERT_TRUE(link.send(bytes));
    ASSERT_TRUE(link.send(zparent::encodeFrame(zparent::Frame{})));
    ASSERT_TRUE(link.sendCommand(2, 1, "not json at all"));

    EXPECT_FALSE(link.nextEvent(1500ms).has_value());
    EXPECT_FALSE(link.closed());
    EXPECT_FALSE(link.waitWorkerExit(10ms)) << "the worker ended";
}

TEST_F(WorkerProcess, EndsWithinASecondOfItsParentAndRemovesItsWorkFolder) {
    options.parentPid = startStandInParent();
    pid_t worker = link.startWorker(options);
    ASSERT_GT(worker, 0);
    ASSERT_TRUE(link.acceptWorker(5s));

    fs::path work = dayFolder() / ("zebrelo-" + std::to_string(worker));
    fs::create_directories(work / "inner");
    std::ofstream(work / "inner" / "staged.db") << "data";

    kill(stand_in, SIGKILL);
    waitpid(stand_in, nullptr, 0);
    stand_in = -1;
    int status = 0;
    ASSERT_TRUE(link.waitWorkerExit(2500ms, &status)) << "the worker outlived its parent";
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_FALSE(fs::exists(work));
}

TEST_F(WorkerProcess, AMissingDeviceProviderIsReportedAsABindingFailure) {
    options.environment["ZEBRELO_DEVICE_PROVIDER"] = (temp / "missing-provider.so").string();
    ASSERT_GT(link.startWorker(options), 0);
    ASSERT_TRUE(link.acceptWorker(5s));
    auto failed = link.nextEvent(5s);
    ASSERT_TRUE(failed.has_value());
    EXPECT_EQ(failed->frame.commandType, 9u);
    EXPECT_EQ(failed->frame.packetStatus, 1);
    // Without devices the worker stays up and keeps its link.
    EXPECT_FALSE(link.waitWorkerExit(300ms));
}

TEST_F(WorkerProcess, AParentThatDoesNotExistEndsTheWorkerAtOnce) {
    options.parentPid = startStandInParent();
    kill(stand_in, SIGKILL);
    waitpid(stand_in, nullptr, 0);
    stand_in = -1;
    ASSERT_GT(link.startWorker(options), 0);
    EXPECT_TRUE(link.waitWorkerExit(3s));
}

TEST_F(WorkerProcess, PortZeroMakesNoConnectionAttempt) {
    options.port = 0;
    ASSERT_GT(link.startWorker(options), 0);
    EXPECT_FALSE(link.acceptWorker(1500ms));
    EXPECT_FALSE(link.waitWorkerExit(10ms)) << "the worker ended without a link";
}

TEST_F(WorkerProcess, DayFolderHoldsGlogFilesOnlyWhenLoggingIsOn) {
    options.log = true;
    ASSERT_GT(link.startWorker(options), 0);
    ASSERT_TRUE(link.acceptWorker(5s));
    fs::path day = dayFolder();
    ASSERT_FALSE(day.empty());
    EXPECT_EQ(day.filename().string().size(), 8u);  // YYYYMMDD
    bool glogFile = false;
    for (int spin = 0; spin < 100 && !glogFile; ++spin) {
        for (const auto& entry : fs::directory_iterator(day))
            glogFile |= entry.path().filename().string().rfind("zebrelo.", 0) == 0;
        if (!glogFile) std::this_thread::sleep_for(20ms);
    }
    EXPECT_TRUE(glogFile);
    link.stopWorker();

    fs::remove_all(day);
    options.log = false;
    ASSERT_GT(link.startWorker(options), 0);
    ASSERT_TRUE(link.acceptWorker(5s));
    link.stopWorker();
    ASSERT_TRUE(fs::exists(day));
    for (const auto& entry : fs::directory_iterator(day))
        EXPECT_NE(entry.path().filename().string().rfind("zebrelo.", 0), 0u) << entry.path();
}

TEST_F(WorkerProcess, TestModulePrintsItsSelfTestOnlyToAConsole) {
    options.testModule = true;
    options.console = true;
    ASSERT_GT(link.startWorker(options), 0);
    ASSERT_TRUE(link.acceptWorker(5s));
    std::string output;
    for (int spin = 0; spin < 100 && output.find("date3: ") == std::string::npos; ++spin) {
        std::this_thread::sleep_for(30ms);
        output = workerOutput();
    }
    EXPECT_NE(output.find("date1: 2001-01-01"), std::string::npos) << output;
    EXPECT_NE(output.find("date3: "), std::string::npos);
    // Logging is off: nothing of glog's reaches the console.
    EXPECT_EQ(output.find("connectToParent"), std::string::npos) << output;
    link.stopWorker();

    std::filesystem::remove(temp / "worker.out");
    options.console = false;
    ASSERT_GT(link.startWorker(options), 0);
    ASSERT_TRUE(link.acceptWorker(5s));
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(workerOutput().find("date1: "), std::string::npos);
}

}  // namespace
