// Command 504 with two packages, hurt by the device between them: the first
// is installed, the second announced, and the fault meets the staging of
// the second (its file open on the device). Pulled out, broken or stalled
// past the worker's patience, the device loses the second: it gets no
// progress and nothing of it lies in the staging folder, while the list
// still ends with its report (0), within seconds even on the silent device
// (whose session is released without waiting out the library). The worker
// stays up, and after a re-attach the second installs.
#include "app_fixture.h"
#include "fault_steps.h"

#include <chrono>
#include <filesystem>

namespace fs = std::filesystem;
using e2e::Fault;

namespace {

constexpr char kFirst[] = "com.zebrelo.e2e.first";
constexpr char kSecond[] = "com.zebrelo.e2e.second";
using Verdicts = std::vector<std::pair<std::string, uint16_t>>;

class InstallFaults : public AppCommands, public ::testing::WithParamInterface<Fault> {
protected:
    InstallFaults() { workerEnvironment = e2e::shortSilence(); }
    std::string package(const std::string& id) {
        return makeIpa(id + ".ipa", "--id " + id + " --icon-url http://127.0.0.1:1/none.png");
    }
    fs::path staging() const { return fs::path(sim->folder) / "state" / udid / "media" / "general_storage"; }
};

// Per announced package, in order: its identifier and the packetStatus of
// its last progress event (0 when it had none).
Verdicts verdicts(const std::vector<zparent::Event>& events) {
    Verdicts out;
    for (const auto& e : events) {
        if (isAppReport(e)) break;
        if (e.stage == 0 && e.type == 0) {
            auto metadata = parseJson(e.tail);
            out.emplace_back(metadata.IsObject() ? metadata["CFBundleIdentifier"].GetString() : "?", 0);
        }
        if (e.stage == 2 && !out.empty()) out.back().second = e.frame.packetStatus;
    }
    return out;
}

TEST_P(InstallFaults, BetweenTwoAppsOfTheList) {
    start(e2e::profileDir(kNoApps), kNoAppsUdid);
    const std::string first = package(kFirst), second = package(kSecond);
    // The first package's staging opens one file; the fault meets the second's.
    ASSERT_EQ(e2e::arm(*sim, udid, "afc-open", 1, GetParam()), "ok");
    // A stall stays on until the re-attach below. Two seconds of silence
    // fail the staging; the list then ends well before the minute the
    // library would wait for the stalled session's release.
    auto events = run(504, jsonArray({first, second}), std::chrono::seconds(20));
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back().code, 0);
    EXPECT_TRUE(e2e::fired(*sim, udid));
    EXPECT_EQ(verdicts(events), (Verdicts{{kFirst, 2}, {kSecond, 0}}));
    EXPECT_EQ(e2e::namesIn(staging()), std::set<std::string>{std::string(kFirst) + ".ipa"});
    EXPECT_TRUE(e2e::workerUp(*worker));

    ASSERT_TRUE(e2e::reattach(*sim, *worker, udid));
    auto again = run(504, jsonArray({second}));
    ASSERT_FALSE(again.empty());
    EXPECT_EQ(again.back().code, 0);
    EXPECT_EQ(verdicts(again), (Verdicts{{kSecond, 2}}));
    const std::string stock = stockTool("-l");
    EXPECT_NE(stock.find(kFirst), std::string::npos) << stock;
    EXPECT_NE(stock.find(kSecond), std::string::npos) << stock;
}

INSTANTIATE_TEST_SUITE_P(EveryFault, InstallFaults, e2e::kEveryFault, e2e::faultName);

}  // namespace
