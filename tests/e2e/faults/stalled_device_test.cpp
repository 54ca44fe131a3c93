// A stalled device. Beside a healthy one, the healthy one's commands all
// answer while a command to the stalled one waits on it; each caller of
// the stalled one ends once the provider's patience with it runs out, with
// the code of a service that would not start, or of a conversation that
// broke when the service was already up.
#include "fault_steps.h"

#include <optional>
#include <thread>
#include <utility>

using namespace std::chrono_literals;
using zparent::Event;

namespace {

// Far longer than any command to the healthy device takes: its answers must
// come while the stalled device's caller is still waiting.
const std::map<std::string, std::string> kPatientWorker = {{"ZEBRELO_PROVIDER_IO_TIMEOUT_MS", "8000"}};

TEST(StalledDevice, HoldsUpOnlyItsOwnCallers) {
    e2e::Simulator sim;
    ASSERT_TRUE(sim.ready());
    const std::string stalled = sim.udids().front();
    const std::string healthy = sim.attach("builtin");
    e2e::Worker worker(sim, 0, kPatientWorker);
    ASSERT_TRUE(worker.connected());
    ASSERT_TRUE(worker.waitForReady(stalled));
    ASSERT_TRUE(worker.waitForReady(healthy));

    ASSERT_EQ(e2e::strike(sim, stalled, e2e::Fault::Stall), "ok");
    const uint64_t waiting = worker.nextTaskId();
    const std::string root = "{\"path\":\"/\"}";
    ASSERT_TRUE(worker.link.sendCommand(waiting, 704, e2e::commandJson(stalled), root));
    // Its way to the device begun before the healthy device's commands go.
    std::this_thread::sleep_for(500ms);
    auto endOf = [&](uint64_t task) {
        return [task](const Event& e) { return e.frame.taskId == task && zparent::isFinalReport(e); };
    };

    for (auto [command, tail] : {std::pair<uint32_t, std::optional<std::string>>{300, std::nullopt}, {704, root},
                                 {100, std::nullopt}}) {
        auto events = worker.run(command, e2e::commandJson(healthy), tail, 20s);
        ASSERT_FALSE(events.empty()) << command << " to the healthy device got no report";
        EXPECT_EQ(events.back().code, 0) << command;
    }
    EXPECT_FALSE(worker.waitFor(endOf(waiting), 0ms)) << "the stalled device answered before the healthy one";

    auto ended = worker.waitFor(endOf(waiting), 40s);
    ASSERT_TRUE(ended) << "the stalled device's caller waits without end";
    EXPECT_EQ(ended->code, 12);
    EXPECT_TRUE(e2e::workerUp(worker));
}

TEST(StalledDevice, BreaksAListingUnderWay) {
    e2e::Simulator sim;
    ASSERT_TRUE(sim.ready());
    const std::string udid = sim.udids().front();
    e2e::Worker worker(sim, 0, e2e::shortSilence());
    ASSERT_TRUE(worker.waitForReady(udid));
    // A pull opened and left idle keeps the device's AFC service up.
    const uint64_t idle = worker.nextTaskId();
    ASSERT_TRUE(worker.link.sendCommand(idle, 702, "{\"uuid\":\"" + udid + "\",\"code\":0,\"stage\":1}",
                                        std::string("{\"path\":\"/Books/Books.plist\"}")));
    auto opened = worker.waitFor([&](const Event& e) { return e.frame.taskId == idle; }, e2e::kAnswerTimeout);
    ASSERT_TRUE(opened && opened->frame.packetStatus == 2);

    ASSERT_EQ(e2e::strike(sim, udid, e2e::Fault::Stall), "ok");
    auto listed = worker.run(704, e2e::commandJson(udid), std::string("{\"path\":\"/\"}"), 20s);
    ASSERT_FALSE(listed.empty());
    EXPECT_EQ(listed.back().code, 2);
}

}  // namespace
