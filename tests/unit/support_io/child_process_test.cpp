// Child processes: capture through the pipe, exit codes, held starts.
#include "zeb_child_process.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

class ChildProcessTest : public ::testing::Test {
protected:
    void SetUp() override {
        folder = fs::temp_directory_path() / ("zeb-child-" + std::to_string(getpid()));
        fs::create_directories(folder);
    }
    void TearDown() override { fs::remove_all(folder); }

    static std::string readFile(const fs::path& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    static bool waitForFile(const fs::path& path, std::chrono::milliseconds limit) {
        auto end = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < end) {
            if (fs::exists(path)) return true;
            std::this_thread::sleep_for(20ms);
        }
        return fs::exists(path);
    }
    fs::path folder;
};

std::string numbers(int count) {
    std::string text;
    for (int n = 1; n <= count; ++n) text += std::to_string(n) + "\n";
    return text;
}

TEST_F(ChildProcessTest, CapturesLargeOutputWholeAndInOrder) {
    int code = -5;
    // Far more than one 255-byte read and more than a pipe holds: the child
    // writes and ends while much of it still waits in the pipe.
    EXPECT_EQ(zeb::runCommand("seq 1 60000", code), numbers(60000));
    EXPECT_EQ(code, 0);
    std::string bytes = zeb::runCommand("printf 'a\\000b'", code);
    EXPECT_EQ(bytes, std::string("a\0b", 3));
}

TEST_F(ChildProcessTest, JoinsStandardErrorInOrder) {
    int code = -5;
    EXPECT_EQ(zeb::runCommand("echo one; echo two >&2; echo three", code), "one\ntwo\nthree\n");
}

TEST_F(ChildProcessTest, ReportsExitCodesAndMissingPrograms) {
    int code = -5;
    zeb::runCommand("exit 3", code);
    EXPECT_EQ(code, 3);
    zeb::runCommand("kill -9 $$", code);
    EXPECT_EQ(code, 128 + SIGKILL);
    std::string output = zeb::runProgram("/no/such/program", {"-x"}, code);
    EXPECT_EQ(code, 127);
    EXPECT_NE(output.find("not found"), std::string::npos) << output;
    zeb::runCommand("zeb_no_such_program_anywhere", code);
    EXPECT_EQ(code, 127);
}

TEST_F(ChildProcessTest, EndsWhenTheChildEndsEvenIfAGrandchildHoldsThePipe) {
    int code = -5;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(zeb::runCommand("sleep 3 & echo done", code), "done\n");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    // A child reading its input sees the end of it at once instead of waiting.
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(zeb::runCommand("cat", code), "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
}

TEST_F(ChildProcessTest, JoinsArgumentsWithoutQuoting) {
    EXPECT_EQ(zeb::joinArguments("tool", {}), "tool");
    EXPECT_EQ(zeb::joinArguments("tool", {"-a", "\"My Phone\""}), "tool -a \"My Phone\"");
    int code = -5;
    EXPECT_EQ(zeb::runProgram("printf", {"'%s|'", "a", "'b c'"}, code), "a|b c|");
    EXPECT_EQ(zeb::runProgram("echo", {}, code), "\n");
    // A program whose path holds a blank is still one word.
    auto script = folder / "with blank" / "say.sh";
    fs::create_directories(script.parent_path());
    std::ofstream(script) << "#!/bin/sh\necho \"said $1\"\n";
    fs::permissions(script, fs::perms::owner_all);
    EXPECT_EQ(zeb::runProgram(script.string(), {"hi"}, code), "said hi\n");
    EXPECT_EQ(code, 0);
}

class Collector : public CRedirector {
public:
    std::string text;
    size_t largestPiece = 0;

protected:
    void onStdout(const char* data, size_t size) override {
        text.append(data, size);
        largestPiece = std::max(largestPiece, size);
    }
};

TEST_F(ChildProcessTest, RedirectorFeedsInputAndReadsInSmallPieces) {
    Collector collector;
    ASSERT_TRUE(collector.open("cat"));
    std::string input(10000, 'q');
    EXPECT_TRUE(collector.writeInput(input.data(), input.size()));
    collector.closeInput();
    collector.waitReader();
    EXPECT_EQ(collector.text, input);
    EXPECT_LE(collector.largestPiece, 255u);
    EXPECT_EQ(collector.exitCode(), 0);
    collector.close();
    EXPECT_EQ(collector.exitCode(), 0);
}

TEST_F(ChildProcessTest, RedirectorCloseDoesNotWaitForTheChild) {
    Collector collector;
    ASSERT_TRUE(collector.open("exec sleep 30"));
    pid_t child = collector.pid();
    auto start = std::chrono::steady_clock::now();
    collector.close();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    EXPECT_EQ(collector.exitCode(), -1);
    EXPECT_EQ(kill(child, 0), 0);  // left running, as documented
    kill(child, SIGKILL);
}

TEST_F(ChildProcessTest, SuspendedChildRunsOnlyWhenReleased) {
    auto input = folder / "in.txt";
    auto output = folder / "out.txt";
    SuspendedProcess child =
        zeb::startSuspended("/bin/sh", {"-c", "'cat \"" + input.string() + "\" > \"" + output.string() + "\"'"});
    ASSERT_TRUE(child.valid());
    int code = -5;
    EXPECT_TRUE(child.running(code));
    EXPECT_TRUE(child.setAffinity(1));
    std::this_thread::sleep_for(200ms);
    EXPECT_FALSE(fs::exists(output));  // held: the program has not run yet
    // The caller prepares what the child needs, then lets it go.
    std::ofstream(input) << "prepared by the caller";
    ASSERT_TRUE(child.resume());
    EXPECT_FALSE(child.resume());
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(readFile(output), "prepared by the caller");
    EXPECT_FALSE(child.running(code));
    EXPECT_EQ(code, 0);
}

TEST_F(ChildProcessTest, SuspendedChildDroppedOrKilledNeverRuns) {
    auto marker = folder / "ran";
    std::vector<std::string> touch = {"'" + marker.string() + "'"};
    {
        SuspendedProcess child = zeb::startSuspended("touch", touch);
        ASSERT_TRUE(child.valid());
        EXPECT_EQ(child.wait(), 127);  // never released
    }
    {
        SuspendedProcess child = zeb::startSuspended("touch", touch);
        ASSERT_TRUE(child.valid());
        child.terminate();
        int code = 0;
        EXPECT_FALSE(child.running(code));
        EXPECT_EQ(code, 128 + SIGKILL);
    }
    { SuspendedProcess dropped = zeb::startSuspended("touch", touch); }
    std::this_thread::sleep_for(200ms);
    EXPECT_FALSE(fs::exists(marker));
    EXPECT_FALSE(zeb::startSuspended("/no/such/program", {}).valid());
    EXPECT_FALSE(zeb::startSuspended("zeb_no_such_program_anywhere", {}).valid());
}

TEST_F(ChildProcessTest, ElevatedStartAsRootIsAPlainStart) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root; elevation would prompt";
    auto marker = folder / "elevated";
    ASSERT_TRUE(zeb::runElevated("/bin/sh", {"-c", "'echo $(id -u) > \"" + marker.string() + "\"'"}));
    ASSERT_TRUE(waitForFile(marker, 5000ms));
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(readFile(marker), "0\n");
    EXPECT_FALSE(zeb::runElevated("/no/such/program", {}));
}

TEST_F(ChildProcessTest, FindsProcessesAndProgramsByName) {
    SuspendedProcess sleeper = zeb::startSuspended("sleep", {"30"});
    ASSERT_TRUE(sleeper.valid());
    sleeper.resume();
    std::this_thread::sleep_for(200ms);
    EXPECT_NE(zeb::isProcessRunning("zeb-none-such; slee?"), 0);
    EXPECT_EQ(zeb::isProcessRunning("zeb-none-such;also-none*"), 0);
    sleeper.terminate();
    EXPECT_EQ(zeb::isItunesRunning(), 0);
    EXPECT_EQ(zeb::findProgram("sh").empty(), false);
    EXPECT_EQ(zeb::findProgram("zeb_no_such_program_anywhere"), "");
}

}  // namespace
