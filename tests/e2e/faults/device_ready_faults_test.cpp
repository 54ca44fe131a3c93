// A fault while the worker brings the device up after an attach, at the
// last step of the bring-up: the AFC device information. The worker sends
// the device error event (17), never calls the device ready, stays up, and
// serves the device once it is attached again.
#include "faulted_device.h"

using namespace std::chrono_literals;
using zparent::Event;

namespace {

class DeviceReadyFaults : public FaultedDevice {};

TEST_P(DeviceReadyFaults, AtTheDeviceInformation) {
    const std::string bytes = patternBytes(0x200000 + 5, 31);
    putOnDevice("/Downloads/after.bin", bytes);
    ASSERT_EQ(sim->control("detach " + udid), "ok");
    ASSERT_TRUE(worker->waitFor([&](const Event& e) { return e2e::isGone(e, udid); }));
    ASSERT_EQ(arm("afc-device-info", 0), "ok");
    ASSERT_EQ(sim->attach(udid), udid);

    auto error = worker->waitFor([&](const Event& e) { return e.frame.commandType == 12 && e.uuid == udid; });
    ASSERT_TRUE(error) << "no device error event";
    EXPECT_EQ(error->info, "\"17\"");
    EXPECT_EQ(error->frame.packetStatus, 1);
    EXPECT_TRUE(fired());
    EXPECT_TRUE(e2e::workerUp(*worker));

    // Out it goes (if the fault left it in), with its gone event and no
    // ready event before.
    if (fault() != e2e::Fault::Detach) {
        ASSERT_EQ(sim->control("detach " + udid), "ok");
    }
    ASSERT_TRUE(worker->waitFor([&](const Event& e) { return e2e::isGone(e, udid); }));
    for (const Event& e : worker->drain(0ms)) EXPECT_FALSE(e2e::isReady(e, udid)) << "ready after a failed bring-up";

    ASSERT_TRUE(reattach());
    auto pulled = zparent::pullFile(worker->link, ++nextTask, udid, "/Downloads/after.bin", local() / "after.bin",
                                    patient());
    ASSERT_TRUE(pulled.ok) << pulled.error;
    EXPECT_TRUE(readLocal(local() / "after.bin") == bytes);
}

INSTANTIATE_TEST_SUITE_P(EveryFault, DeviceReadyFaults, e2e::kEveryFault, e2e::faultName);

}  // namespace
