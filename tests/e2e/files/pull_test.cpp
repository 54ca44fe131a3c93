// Command 702: a device file pulled piece by piece.
#include "file_fixture.h"

#include <rapidjson/document.h>

#include <thread>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using zparent::Event;

namespace {

constexpr size_t kPiece = 0x200000;

zparent::TransferOptions quick() {
    zparent::TransferOptions options;
    options.pieceTimeout = 20s;
    return options;
}

}  // namespace

TEST_F(FileCommands, PullBringsFilesOfEveryPieceShape) {
    const std::vector<size_t> sizes = {1, 2 * kPiece, kPiece + 1, 10 * kPiece + 17};
    for (size_t size : sizes) {
        const std::string devicePath = "/Downloads/pull-" + std::to_string(size) + ".bin";
        putOnDevice(devicePath, patternBytes(size, static_cast<unsigned>(size)));
        const fs::path target = local() / ("got-" + std::to_string(size));
        auto result = zparent::pullFile(worker->link, ++nextTask, udid, devicePath, target, quick());
        ASSERT_TRUE(result.ok) << size << ": " << result.error;
        EXPECT_EQ(result.size, static_cast<int64_t>(size));
        EXPECT_TRUE(readLocal(target) == readOnDevice(devicePath)) << size;
        EXPECT_FALSE(fs::exists(zparent::partialPath(target)));
        EXPECT_FALSE(fs::exists(zparent::partialRecordPath(target)));
    }
}

TEST_F(FileCommands, PullDescriptionListsPiecesInTextOrder) {
    putOnDevice("/DCIM/eleven.bin", patternBytes(10 * kPiece + 5));
    const uint64_t task = ++nextTask;
    worker->link.sendCommand(task, 702, commandWithStage(udid, 1), std::string("{\"path\":\"/DCIM/eleven.bin\"}"));
    auto opened = worker->waitFor([&](const Event& e) { return e.frame.taskId == task; });
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->stage, 1);
    EXPECT_EQ(opened->frame.packetStatus, 2);
    rapidjson::Document description;
    description.Parse(opened->tail.c_str());
    ASSERT_TRUE(description.IsObject());
    EXPECT_STREQ(description["md5"].GetString(), "a");
    EXPECT_STREQ(description["file_name"].GetString(), "eleven.bin");
    std::vector<std::string> order;
    for (auto& member : description["fbs"].GetObject()) order.push_back(member.name.GetString());
    EXPECT_EQ(order, (std::vector<std::string>{"1", "10", "11", "2", "3", "4", "5", "6", "7", "8", "9"}));
    EXPECT_EQ(description["fbs"]["11"]["offset_length"].GetInt64(), 5);

    // A piece comes back raw with the piece info as sent.
    const std::string info = "{\"offset_length\":5,\"id\":11,\"offset\":20971520}";
    worker->link.sendCommand(task, 702, commandWithStage(udid, 2), info);
    auto piece = worker->waitFor([&](const Event& e) { return e.frame.taskId == task; });
    ASSERT_TRUE(piece);
    EXPECT_EQ(piece->type, 1);
    EXPECT_EQ(piece->tail, readOnDevice("/DCIM/eleven.bin").substr(10 * kPiece, 5));

    // Requests that name nothing or lie outside the file get no answer.
    for (const char* bad : {"{\"id\":0,\"offset\":0,\"offset_length\":10}", "{\"id\":1,\"offset\":0,\"offset_length\":0}",
                            "{\"id\":1,\"offset\":99999999999,\"offset_length\":10}",
                            "{\"id\":1,\"offset\":-5,\"offset_length\":10}", "not json"})
        worker->link.sendCommand(task, 702, commandWithStage(udid, 2), std::string(bad));
    worker->link.sendCommand(task, 702, commandWithStage(udid, 3));
    auto finished = worker->waitFor([&](const Event& e) { return e.frame.taskId == task; });
    ASSERT_TRUE(finished);
    EXPECT_EQ(finished->stage, 3);

    // Stage 3 again, with no reader left: silence.
    worker->link.sendCommand(task, 702, commandWithStage(udid, 3));
    EXPECT_FALSE(worker->waitFor([&](const Event& e) { return e.frame.taskId == task; }, 1500ms));
}

TEST_F(FileCommands, PullOfMissingOrEmptyFilesFailsTheOpen) {
    putOnDevice("/Downloads/empty.bin", "");
    for (const char* path : {"/Downloads/none.bin", "/Downloads/empty.bin", "/Downloads/../Downloads/empty.bin"}) {
        const uint64_t task = ++nextTask;
        worker->link.sendCommand(task, 702, commandWithStage(udid, 1), "{\"path\":\"" + std::string(path) + "\"}");
        auto opened = worker->waitFor([&](const Event& e) { return e.frame.taskId == task; });
        ASSERT_TRUE(opened) << path;
        EXPECT_EQ(opened->stage, 1);
        EXPECT_EQ(opened->frame.packetStatus, 6) << path;
    }
    // A bad envelope and a bad tail answer nothing.
    const uint64_t task = ++nextTask;
    worker->link.sendCommand(task, 702, "{broken", std::string("{}"));
    worker->link.sendCommand(task + 1, 702, commandWithStage(udid, 1), std::string("{broken"));
    EXPECT_FALSE(worker->waitFor([&](const Event& e) { return e.frame.taskId >= task; }, 1500ms));
}

TEST_F(FileCommands, PullAbandonedWithStatusOneAnswersNothingMore) {
    putOnDevice("/Downloads/two.bin", patternBytes(kPiece + 3));
    const uint64_t task = ++nextTask;
    worker->link.sendCommand(task, 702, commandWithStage(udid, 1), std::string("{\"path\":\"/Downloads/two.bin\"}"));
    ASSERT_TRUE(worker->waitFor([&](const Event& e) { return e.frame.taskId == task && e.stage == 1; }));
    worker->link.sendCommand(task, 702, commandWithStage(udid, 2), std::string("{}"), 1);
    // Packets run as pool tasks: let the abandonment land before the rest.
    std::this_thread::sleep_for(300ms);
    worker->link.sendCommand(task, 702, commandWithStage(udid, 2),
                             std::string("{\"id\":1,\"offset\":0,\"offset_length\":100}"));
    worker->link.sendCommand(task, 702, commandWithStage(udid, 3));
    EXPECT_FALSE(worker->waitFor([&](const Event& e) { return e.frame.taskId == task; }, 1500ms));
}

TEST_F(FileCommands, PullResumesIntoThePartialFile) {
    const size_t size = 5 * kPiece + 11;
    putOnDevice("/Downloads/resume.bin", patternBytes(size, 3));
    const fs::path target = local() / "resume.bin";
    std::atomic<bool> stop{false};
    auto options = quick();
    options.interrupted = &stop;
    options.progress = [&](int64_t done, int64_t) {
        if (done >= static_cast<int64_t>(2 * kPiece)) stop = true;
    };
    auto first = zparent::pullFile(worker->link, ++nextTask, udid, "/Downloads/resume.bin", target, options);
    ASSERT_FALSE(first.ok);
    EXPECT_TRUE(first.cancelled);
    EXPECT_TRUE(fs::exists(zparent::partialRecordPath(target)));

    stop = false;
    options.progress = nullptr;
    options.resume = true;
    auto second = zparent::pullFile(worker->link, ++nextTask, udid, "/Downloads/resume.bin", target, options);
    ASSERT_TRUE(second.ok) << second.error;
    EXPECT_GE(second.skipped, static_cast<int64_t>(2 * kPiece));
    EXPECT_EQ(second.skipped + second.transferred, static_cast<int64_t>(size));
    EXPECT_TRUE(readLocal(target) == readOnDevice("/Downloads/resume.bin"));
}

TEST_F(FileCommands, PullEndsWhenTheDeviceGoesAndTheWorkerStays) {
    putOnDevice("/Downloads/big.bin", patternBytes(8 * kPiece, 5));
    auto options = quick();
    bool detached = false;
    options.progress = [&](int64_t done, int64_t) {
        if (!detached && done > 0) {
            detached = true;
            sim->control("detach " + udid);
        }
    };
    auto result = zparent::pullFile(worker->link, ++nextTask, udid, "/Downloads/big.bin", local() / "big.bin", options);
    EXPECT_FALSE(result.ok);
    EXPECT_TRUE(detached);
    // The worker is still there and serves the device when it comes back.
    sim->control("attach " + udid);
    ASSERT_TRUE(worker->waitForReady(udid, 30s));
    auto again = zparent::pullFile(worker->link, ++nextTask, udid, "/Downloads/big.bin", local() / "big.bin", quick());
    ASSERT_TRUE(again.ok) << again.error;
    EXPECT_TRUE(readLocal(local() / "big.bin") == readOnDevice("/Downloads/big.bin"));
}
