// The built-in device behind a worker that gives up on a silent device in
// seconds, one fault per case: the file transfer and device-ready faults.
#pragma once

#include "fault_steps.h"
#include "file_fixture.h"

class FaultedDevice : public FileCommands, public ::testing::WithParamInterface<e2e::Fault> {
protected:
    FaultedDevice() { workerEnvironment = e2e::shortSilence(); }

    e2e::Fault fault() const { return GetParam(); }
    std::string strike() { return e2e::strike(*sim, udid, fault()); }
    std::string arm(const std::string& point, uint64_t after) { return e2e::arm(*sim, udid, point, after, fault()); }
    bool fired() { return e2e::fired(*sim, udid); }
    bool reattach() { return e2e::reattach(*sim, *worker, udid); }
    // The worker ends a transfer the moment its link breaks or its silence
    // runs out; of a device pulled out, the gone event may come first.
    void expectEndedByTheLink(const std::string& error) {
        if (fault() == e2e::Fault::Detach && error != zparent::kLinkBroke) {
            EXPECT_EQ(error, "the device went away");
            return;
        }
        EXPECT_EQ(error, zparent::kLinkBroke);
        if (fault() == e2e::Fault::Detach) {
            EXPECT_TRUE(worker->waitFor([&](const zparent::Event& e) { return e2e::isGone(e, udid); }));
        }
    }
    zparent::TransferOptions patient() const {
        zparent::TransferOptions options;
        options.pieceTimeout = e2e::kAnswerTimeout;
        return options;
    }
};
