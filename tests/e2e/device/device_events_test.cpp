// Devices arriving, asking for trust, becoming ready and leaving, as the
// parent sees them.
#include "sim_harness.h"

#include <rapidjson/document.h>

#include <gtest/gtest.h>

#include <unistd.h>

using namespace std::chrono_literals;
using e2e::Simulator;
using e2e::Worker;
using zparent::Event;

namespace {

bool isEvent(const Event& event, uint32_t number) { return event.frame.commandType == number && event.frame.taskId == 0; }

TEST(DeviceEvents, TrustedDeviceArrivesBecomesReadyAndLeaves) {
    Simulator sim({"--profile", e2e::profileDir("iphone13-ios17")});
    ASSERT_TRUE(sim.ready());
    Worker worker(sim);
    ASSERT_TRUE(worker.connected());

    auto arrived = worker.waitFor([](const Event& e) { return isEvent(e, 11); });
    ASSERT_TRUE(arrived) << "no device-arrived event";
    EXPECT_EQ(arrived->frame.packetStatus, 1);
    EXPECT_EQ(arrived->uuid, "");
    EXPECT_NE(arrived->code, 0);

    auto ready = worker.waitFor([](const Event& e) { return isEvent(e, 1); });
    ASSERT_TRUE(ready) << "no device-ready event";
    EXPECT_EQ(ready->frame.packetStatus, 2);
    EXPECT_EQ(ready->stage, 0);
    EXPECT_EQ(ready->code, arrived->code);
    EXPECT_EQ(ready->uuid, "00008110-001A2B3C4D5E601E");
    // The info object, keys in the parent's order.
    EXPECT_EQ(ready->info.find("{\"Model\":\"iPhone14,5\",\"FirmVersion\":\"17.5.1\",\"Type\":\"iPhone\",\"Data_FreeSize\":"),
              0u)
        << ready->info;
    rapidjson::Document info;
    info.Parse(ready->info.c_str());
    ASSERT_TRUE(info.IsObject());
    EXPECT_GT(info["Data_PhysicalSize"].GetUint64(), info["Data_FreeSize"].GetUint64());
    EXPECT_EQ(info["Pid"].GetInt(), worker.link.workerPid());
    EXPECT_EQ(info["TaskId"].GetInt(), 0);
    EXPECT_STRNE(info["SerialNumber"].GetString(), "");

    ASSERT_EQ(sim.control("detach " + ready->uuid), "ok");
    auto gone = worker.waitFor([](const Event& e) { return isEvent(e, 8); });
    ASSERT_TRUE(gone);
    EXPECT_EQ(gone->frame.packetStatus, 2);
    EXPECT_EQ(gone->uuid, ready->uuid);
    EXPECT_EQ(gone->info, "{\"PID\":" + std::to_string(worker.link.workerPid()) + "}");
}

TEST(DeviceEvents, UntrustedDeviceAsksForTrustThenBecomesReady) {
    Simulator sim({"--profile", e2e::profileDir("iphone11-ios16-untrusted")});
    ASSERT_TRUE(sim.ready());
    Worker worker(sim);
    ASSERT_TRUE(worker.waitFor([](const Event& e) { return isEvent(e, 11); }));
    auto pairing = worker.waitFor([](const Event& e) { return isEvent(e, 12); });
    ASSERT_TRUE(pairing);
    EXPECT_EQ(pairing->frame.packetStatus, 1);
    EXPECT_EQ(pairing->info, "\"25\"");
    EXPECT_EQ(pairing->tail, "{\"DeviceName\":\"\"}");

    const std::string udid = sim.udids().at(0);
    ASSERT_EQ(sim.control("trust " + udid), "ok");
    auto ready = worker.waitForReady(udid);
    ASSERT_TRUE(ready) << "no device-ready after trust";
}

TEST(DeviceEvents, RefusedAndUnpluggedDeviceGivesOnlyTheEarlyGoneEvent) {
    Simulator sim({"--profile", e2e::profileDir("iphone11-ios16-untrusted")});
    ASSERT_TRUE(sim.ready());
    Worker worker(sim);
    auto pairing = worker.waitFor([](const Event& e) { return isEvent(e, 12); });
    ASSERT_TRUE(pairing);
    const std::string udid = sim.udids().at(0);
    ASSERT_EQ(sim.control("refuse " + udid), "ok");
    ASSERT_EQ(sim.control("detach " + udid), "ok");
    auto gone = worker.waitFor([](const Event& e) { return isEvent(e, 8); });
    ASSERT_TRUE(gone);
    EXPECT_EQ(gone->frame.packetStatus, 1);
    EXPECT_EQ(gone->uuid, "");
    EXPECT_EQ(gone->code, pairing->code);
    EXPECT_FALSE(gone->hasInfo);
    for (const Event& e : worker.drain(1500ms)) EXPECT_NE(e.frame.commandType, 1u) << "a refused device became ready";
}

TEST(DeviceEvents, OldIPhoneIsRefusedButAnIPadOfTheSameVersionIsNot) {
    e2e::ProfileVariant oldPhone("iphone4-ios4", {{"<string>4.3.3</string>", "<string>4.1</string>"}});
    e2e::ProfileVariant oldPad("ipad-air-ios15", {{"<string>15.7</string>", "<string>4.1</string>"}});
    Simulator sim({"--profile", oldPhone.path(), "--profile", oldPad.path()});
    ASSERT_TRUE(sim.ready());
    Worker worker(sim);
    // A host the device hasn't met yet is first told to wait for trust (25).
    auto refused = worker.waitFor([](const Event& e) { return isEvent(e, 12) && e.info != "\"25\""; });
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->info, "\"3\"");
    EXPECT_EQ(refused->uuid, "3b7d9f0e1c2a4b5d6e7f8091a2b3c4d5e6f70812");
    auto ready = worker.waitFor([](const Event& e) { return isEvent(e, 1); });
    ASSERT_TRUE(ready);
    EXPECT_NE(ready->info.find("\"Type\":\"iPad\""), std::string::npos) << ready->info;
}

TEST(DeviceEvents, TaskWorkerReportsNoStatusEventsAndCarriesItsRunMode) {
    Simulator sim({"--profile", e2e::profileDir("iphone13-ios17"), "--profile",
                   e2e::profileDir("iphone11-ios16-untrusted")});
    ASSERT_TRUE(sim.ready());
    Worker worker(sim, 1);
    auto ready = worker.waitFor([](const Event& e) { return isEvent(e, 1); });
    ASSERT_TRUE(ready);
    EXPECT_EQ(ready->stage, 1);
    EXPECT_NE(ready->info.find("\"TaskId\":4242"), std::string::npos) << ready->info;
    ASSERT_EQ(sim.control("detach " + ready->uuid), "ok");
    auto gone = worker.waitFor([](const Event& e) { return isEvent(e, 8); });
    ASSERT_TRUE(gone);
    EXPECT_EQ(gone->stage, 1);
    for (const Event& e : worker.drain(1500ms)) {
        EXPECT_NE(e.frame.commandType, 11u);
        EXPECT_NE(e.frame.commandType, 12u);
    }
}

TEST(DeviceEvents, NetworkDevicesAreInvisibleAndManyUsbDevicesBecomeReady) {
    std::vector<std::string> args = {"--profile", e2e::profileDir("iphone12-ios16-network")};
    Simulator sim(args);
    ASSERT_TRUE(sim.ready());
    Worker worker(sim);
    std::vector<std::string> udids;
    for (int i = 0; i < 32; ++i) udids.push_back(sim.attach("builtin"));
    for (const std::string& udid : udids) {
        ASSERT_FALSE(udid.empty());
        // Each first contact pairs (two RSA keys on the host); devices come
        // up side by side on the pool, but give the last one time.
        ASSERT_TRUE(worker.waitForReady(udid, 200s)) << udid << " never became ready";
    }
    // The network device never shows: 32 arrivals, all of them USB devices.
    size_t arrivals = 0;
    for (const Event& e : worker.drain(500ms)) {
        if (e.frame.commandType == 12) EXPECT_EQ(e.info, "\"25\"") << "only the first-contact trust question";
        arrivals += e.frame.commandType == 11;
    }
    EXPECT_EQ(arrivals, 32u);
}

TEST(DeviceEvents, ARowOfDevicesComesUpWhileOneIsRefusedAndAnotherPulledOut) {
    Simulator sim({"--profile", e2e::profileDir("iphone11-ios16-untrusted")});
    ASSERT_TRUE(sim.ready());
    const std::string refusing = sim.udids().at(0);
    ASSERT_EQ(sim.control("refuse " + refusing), "ok");
    Worker worker(sim);
    std::vector<std::string> udids;
    for (int i = 0; i < 31; ++i) udids.push_back(sim.attach("builtin"));
    // One of the row leaves while the others are still coming up.
    const std::string leaving = udids.back();
    udids.pop_back();
    ASSERT_EQ(sim.control("detach " + leaving), "ok");
    for (const std::string& udid : udids) ASSERT_TRUE(worker.waitForReady(udid, 120s)) << udid << " never became ready";

    std::vector<Event> events = worker.drain(1000ms);
    size_t refusals = 0;
    bool leavingGone = false;
    for (const Event& e : events) {
        if (isEvent(e, 12) && e.uuid.empty()) ++refusals;
        if (isEvent(e, 1)) {
            EXPECT_NE(e.uuid, refusing) << "a refused device is never ready";
            EXPECT_FALSE(leavingGone && e.uuid == leaving) << "no ready after gone";
        }
        if (isEvent(e, 8) && (e.uuid == leaving || e.uuid.empty())) leavingGone = true;
    }
    EXPECT_GE(refusals, 1u) << "the refusing device asked for trust";
    // The refused device holds nothing up: commands on the others answer.
    const std::vector<Event> answer = worker.run(300, e2e::commandJson(udids.front()));
    ASSERT_FALSE(answer.empty());
    EXPECT_EQ(answer.back().code, 0);
}

}  // namespace
