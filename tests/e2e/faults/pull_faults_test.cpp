// Command 702 hurt by the device (pulled out, its connections broken, or
// stalled past the worker's patience) right after the open and in the
// middle of a piece. No piece comes after the fault, the worker stays up,
// and once the device is back the same pull resumes into the partial file.
#include "faulted_device.h"

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
        // The parent hears of a device that went, and otherwise of nothing at all.
        EXPECT_EQ(result.error, fault() == e2e::Fault::Detach ? "the device went away"
                                                              : "the worker did not answer in time");
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

}  // namespace
