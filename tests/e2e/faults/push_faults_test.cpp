// Command 703 hurt by the device (pulled out, its connections broken, or
// stalled past the worker's patience) right after the open and in the
// middle of a piece. The push ends at the fault, the file never shows
// under its name half written, the worker stays up, and once the device is
// back the same push lands whole with no temporary file beside it.
#include "faulted_device.h"

namespace {

constexpr int64_t kPiece = 0x200000;
constexpr char kName[] = "fault.bin";
constexpr char kDevicePath[] = "/Downloads/fault.bin";

class PushFaults : public FaultedDevice {
protected:
    void SetUp() override {
        FaultedDevice::SetUp();
        bytes = patternBytes(3 * kPiece + 77, 23);
        writeLocal(local() / kName, bytes);
    }

    zparent::TransferResult push(const std::function<void()>& firstRequest) {
        auto options = patient();
        // The first report comes with the first piece request, before that piece is sent.
        bool first = true;
        if (firstRequest) options.progress = [&](int64_t, int64_t) {
            if (first) firstRequest();
            first = false;
        };
        return zparent::pushFile(worker->link, ++nextTask, udid, local() / kName, {"/Downloads/", "", -1}, options);
    }

    void expectEndedByTheFault(const zparent::TransferResult& result) {
        EXPECT_FALSE(result.ok);
        expectEndedByTheLink(result.error);
        EXPECT_TRUE(e2e::workerUp(*worker));
        EXPECT_EQ(e2e::cancelAgain(*worker, udid, nextTask), fault() == e2e::Fault::Detach ? 7 : 0);
        EXPECT_FALSE(onDevice(kDevicePath));
    }

    // The device back: the push lands whole under its own name (no copy
    // beside an earlier one), and no temporary or state file stays.
    void expectTheNextPushLands() {
        ASSERT_TRUE(reattach());
        // All the interrupted push may leave is its resume point, which the
        // worker could not remove over a link that had failed.
        for (const std::string& name : e2e::namesIn(media() / "Downloads"))
            EXPECT_TRUE(name == "fault.bin.bak" || name == "fault.bin.bak.json") << name;
        auto again = push(nullptr);
        ASSERT_TRUE(again.ok) << again.error;
        EXPECT_TRUE(readOnDevice(kDevicePath) == bytes);
        EXPECT_EQ(e2e::namesIn(media() / "Downloads"), std::set<std::string>{kName});
    }

    std::string bytes;
};

TEST_P(PushFaults, AfterTheOpenBeforeTheFirstPiece) {
    std::string struck;
    auto result = push([&] { struck = strike(); });
    EXPECT_EQ(struck, "ok");
    expectEndedByTheFault(result);
    expectTheNextPushLands();
}

TEST_P(PushFaults, InTheMiddleOfAPiece) {
    // Piece 1 (and the state file) written whole, half of piece 2.
    ASSERT_EQ(arm("afc-write", kPiece + kPiece / 2), "ok");
    auto result = push(nullptr);
    EXPECT_TRUE(fired());
    expectEndedByTheFault(result);
    expectTheNextPushLands();
}

INSTANTIATE_TEST_SUITE_P(EveryFault, PushFaults, e2e::kEveryFault, e2e::faultName);

}  // namespace
