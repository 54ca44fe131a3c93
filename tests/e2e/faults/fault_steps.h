// Faults the simulator plays on a device through its control channel, and
// the steps that follow one in every fault test: is the worker still up,
// and does the device come back for the next command.
#pragma once

#include "sim_harness.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <set>
#include <string>

namespace e2e {

enum class Fault { Detach, Break, Stall };
// The control channel's word: detach, break, stall.
const char* faultWord(Fault fault);
// Names the cases of a test parameterised by the fault.
std::string faultName(const ::testing::TestParamInfo<Fault>& info);
inline const auto kEveryFault = ::testing::Values(Fault::Detach, Fault::Break, Fault::Stall);

// For the worker: its device I/O gives up after two seconds of silence, so
// that a stalled device fails a call in seconds rather than in a minute.
std::map<std::string, std::string> shortSilence();
// Well beyond that silence (a worker that gave up answers at once): how
// long a parent waits for an answer.
constexpr std::chrono::milliseconds kAnswerTimeout{5000};

// The fault, now; the control channel's answer.
std::string strike(Simulator& sim, const std::string& udid, Fault fault);
// The fault, armed at a point of the device's traffic (sim/README.md,
// "Control channel"): it fires once `after` units have passed there.
std::string arm(Simulator& sim, const std::string& udid, const std::string& point, uint64_t after, Fault fault);
// True once the device's armed faults have fired and their actions have
// run (the simulator is asked to wait for it, up to 20 s).
bool fired(Simulator& sim, const std::string& udid);

// Cancels the device's task `taskId` (again): the answer's code, 0 while
// the device is there and 7 once it has gone, or -1 with no answer in time,
// as when an earlier cancel still holds up the device's commands.
int64_t cancelAgain(Worker& worker, const std::string& udid, uint64_t taskId);

// The worker process runs and its link is open.
bool workerUp(Worker& worker);
bool isGone(const zparent::Event& event, const std::string& udid);
bool isReady(const zparent::Event& event, const std::string& udid);
// After a fault: the device is unplugged if it is still in (and the worker
// has said so), released from a stall and plugged in again; true once the
// worker calls it ready.
bool reattach(Simulator& sim, Worker& worker, const std::string& udid);

// The names in a folder; none when it doesn't exist.
std::set<std::string> namesIn(const std::filesystem::path& folder);

}  // namespace e2e
