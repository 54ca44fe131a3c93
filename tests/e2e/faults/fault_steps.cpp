#include "fault_steps.h"

#include "zeb_parent_commands.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace e2e {

const char* faultWord(Fault fault) {
    switch (fault) {
        case Fault::Detach: return "detach";
        case Fault::Break: return "break";
        case Fault::Stall: return "stall";
    }
    return "";
}

std::string faultName(const ::testing::TestParamInfo<Fault>& info) { return faultWord(info.param); }

std::map<std::string, std::string> shortSilence() { return {{"ZEBRELO_PROVIDER_IO_TIMEOUT_MS", "2000"}}; }

std::string strike(Simulator& sim, const std::string& udid, Fault fault) {
    if (fault == Fault::Stall) return sim.control("stall " + udid + " on");
    return sim.control(std::string(faultWord(fault)) + " " + udid);
}

std::string arm(Simulator& sim, const std::string& udid, const std::string& point, uint64_t after, Fault fault) {
    return sim.control("fault " + udid + " " + point + " after " + std::to_string(after) + " " + faultWord(fault));
}

bool fired(Simulator& sim, const std::string& udid) { return sim.control("fault " + udid + " wait 20000") == "ok 0"; }

int64_t cancelAgain(Worker& worker, const std::string& udid, uint64_t taskId) {
    const uint64_t id = worker.nextTaskId();
    if (!zparent::sendCancel(worker.link, id, udid, taskId)) return -1;
    auto report = worker.waitFor([&](const zparent::Event& e) { return e.frame.taskId == id && zparent::isFinalReport(e); },
                                 kAnswerTimeout);
    return report ? report->code : -1;
}

bool workerUp(Worker& worker) { return !worker.link.closed() && !worker.link.waitWorkerExit(0ms); }

bool isGone(const zparent::Event& event, const std::string& udid) {
    // A device that was never read leaves without its UDID.
    return event.frame.taskId == 0 && event.frame.commandType == 8 && (event.uuid == udid || event.uuid.empty());
}

bool isReady(const zparent::Event& event, const std::string& udid) {
    return event.frame.taskId == 0 && event.frame.commandType == 1 && event.uuid == udid;
}

bool reattach(Simulator& sim, Worker& worker, const std::string& udid) {
    // Out before the stall ends: a stalled connection must not go on to
    // serve what was asked before the fault.
    if (sim.control("detach " + udid) == "ok" &&
        !worker.waitFor([&](const zparent::Event& e) { return isGone(e, udid); }))
        return false;
    if (sim.control("stall " + udid + " off") != "ok" || sim.attach(udid) != udid) return false;
    return worker.waitForReady(udid, 30s).has_value();
}

std::set<std::string> namesIn(const fs::path& folder) {
    std::set<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) names.insert(entry.path().filename().string());
    return names;
}

}  // namespace e2e
