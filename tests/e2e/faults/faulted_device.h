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
    zparent::TransferOptions patient() const {
        zparent::TransferOptions options;
        options.pieceTimeout = e2e::kAnswerTimeout;
        return options;
    }
};
