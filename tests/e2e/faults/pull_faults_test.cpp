// Command 702 hurt by the device (pulled out, its connections broken, or
// stalled past the worker's patience) right after the open and in the
// middle of a piece. The pull ends at the fault, the worker stays up, and
// once the device is back the same pull resumes into the partial file.
#include "faulted_device.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace {

constexpr int64_t kPiece = 0x200000;
constexpr int64_t kSize = 3 * kPiece + 11;
constexpr char kDevicePath[] = "/Downloads/fault.bin";
constexpr char kName[] = "fault.bin";

class PullFaults : public FaultedDevice {
protected:
    void SetUp() override {
        FaultedDevice::SetUp();
        putOnDevice(kDevicePath, patternBytes(kSize, 21));
    }

    zparent::TransferResult pull(const std::function<void(int64_t done)>& progress, bool resume) {
        auto options = patient();
        options.resume = resume;
        if (progress) options.progress = [progress](int64_t done, int64_t) { progress(done); };
        return zparent::pullFile(worker->link, ++nextTask, udid, kDevicePath, local() / kName, options);
    }

    // No piece after the fault, the worker up, and on the computer only the
    // partial file and its record, kept for a resume.
    void expectEndedByTheFault(const zparent::TransferResult& result, int64_t arrived) {
        EXPECT_FALSE(result.ok);
        EXPECT_EQ(result.transferred, arrived);
        expectEndedByTheLink(result.error);
        EXPECT_TRUE(e2e::workerUp(*worker));
        EXPECT_EQ(e2e::cancelAgain(*worker, udid, nextTask), fault() == e2e::Fault::Detach ? 7 : 0);
        for (const std::string& name : e2e::namesIn(local()))
            EXPECT_TRUE(name == "fault.bin.part" || name == "fault.bin.part.json") << name;
    }

    // The device back: the pull resumes, asks only for what is missing, and
    // leaves the whole file alone in its folder.
    void expectTheNextPullCompletes(int64_t kept) {
        ASSERT_TRUE(reattach());
        auto again = pull(nullptr, true);
        ASSERT_TRUE(again.ok) << again.error;
        EXPECT_EQ(again.skipped, kept);
        EXPECT_EQ(again.transferred, kSize - kept);
        EXPECT_TRUE(readLocal(local() / kName) == readOnDevice(kDevicePath));
        EXPECT_EQ(e2e::namesIn(local()), std::set<std::string>{kName});
        EXPECT_EQ(e2e::namesIn(media() / "Downloads"), std::set<std::string>{kName});
    }
};

TEST_P(PullFaults, AfterTheOpenBeforeTheFirstPiece) {
    std::string struck;
    // The first report comes once the description is in, before any piece is asked for.
    auto result = pull([&](int64_t done) { if (done == 0 && struck.empty()) struck = strike(); }, false);
    EXPECT_EQ(struck, "ok");
    expectEndedByTheFault(result, 0);
    expectTheNextPullCompletes(0);
}

TEST_P(PullFaults, InTheMiddleOfThePieceAskedFor) {
    ASSERT_EQ(arm("afc-read", kPiece / 2), "ok");
    auto result = pull(nullptr, false);
    EXPECT_TRUE(fired());
    expectEndedByTheFault(result, 0);
    expectTheNextPullCompletes(0);
}

TEST_P(PullFaults, InTheMiddleOfThePieceReadAhead) {
    // Piece 1 goes out whole; the worker reads piece 2 before it is asked for.
    ASSERT_EQ(arm("afc-read", kPiece + kPiece / 2), "ok");
    auto result = pull(nullptr, false);
    EXPECT_TRUE(fired());
    expectEndedByTheFault(result, kPiece);
    expectTheNextPullCompletes(kPiece);
}

INSTANTIATE_TEST_SUITE_P(EveryFault, PullFaults, e2e::kEveryFault, e2e::faultName);

// Connections broken under a pull, the device still in, and another pull
// open and idle that still holds the broken links: the device's next
// commands find fresh ones and answer as on a device that was never hurt.
class BrokenLink : public PullFaults {};

TEST_P(BrokenLink, LeavesNothingBrokenForTheNextCommands) {
    putOnDevice("/Downloads/idle.bin", patternBytes(kPiece, 22));
    const uint64_t idle = ++nextTask;
    const std::string idlePath = "{\"path\":\"/Downloads/idle.bin\"}";
    ASSERT_TRUE(worker->link.sendCommand(idle, 702, commandWithStage(udid, 1), idlePath));
    auto opened = worker->waitFor([&](const zparent::Event& e) { return e.frame.taskId == idle; }, e2e::kAnswerTimeout);
    ASSERT_TRUE(opened && opened->frame.packetStatus == 2);

    ASSERT_EQ(arm("afc-read", kPiece + kPiece / 2), "ok");
    auto broken = pull(nullptr, false);
    EXPECT_TRUE(fired());
    EXPECT_EQ(broken.error, zparent::kLinkBroke);
    EXPECT_EQ(broken.transferred, kPiece);

    auto overview = worker->run(300, e2e::commandJson(udid));
    ASSERT_EQ(overview.size(), 3u);
    EXPECT_EQ(overview[2].code, 0);
    EXPECT_NE(overview[0].tail.find("\"UniqueDeviceID\":\"" + udid + "\""), std::string::npos) << overview[0].tail;
    EXPECT_NE(overview[1].tail, "{}");

    auto root = zparent::listFolder(worker->link, ++nextTask, udid, "/", e2e::kAnswerTimeout);
    EXPECT_EQ(root.code, 0);
    EXPECT_TRUE(std::any_of(root.entries.begin(), root.entries.end(),
                            [](const auto& entry) { return entry.name == "Downloads"; }));

    auto again = pull(nullptr, true);
    ASSERT_TRUE(again.ok) << again.error;
    EXPECT_EQ(again.skipped, kPiece);
    EXPECT_TRUE(readLocal(local() / kName) == readOnDevice(kDevicePath));
}

INSTANTIATE_TEST_SUITE_P(Break, BrokenLink, ::testing::Values(e2e::Fault::Break), e2e::faultName);

}  // namespace
