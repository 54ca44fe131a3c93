// Time from attach to device-ready for 1, 8 and 32 simulated devices,
// beside the time the stock ideviceinfo takes to read the same devices'
// values from the same simulator in the same run. The devices are paired
// with this host first, so that neither side pays for pairing. Then
// `zebrelo-ctl info` as a whole process beside `ideviceinfo` as one.
#include "bench_measure.h"
#include "bench_row.h"
#include "sim_harness.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using namespace std::chrono;

namespace {

double secondsSince(steady_clock::time_point start) { return duration<double>(steady_clock::now() - start).count(); }

// One ideviceinfo read of the whole default domain per device, the devices
// one after the other; the median of `rounds` such passes. libimobiledevice's
// handshake sleeps 100 ms whenever the device's answer is not in yet, so a
// single pass over one device is either ~10 ms or ~110 ms: the median of a few
// is the tool's typical time.
double ideviceinfoSeconds(const e2e::Simulator& sim, const std::vector<std::string>& udids, int rounds) {
    std::vector<double> passes;
    for (int round = 0; round < rounds; ++round) {
        auto start = steady_clock::now();
        for (const std::string& udid : udids) {
            std::string command =
                "USBMUXD_SOCKET_ADDRESS=UNIX:" + sim.socketPath() + " ideviceinfo -u " + udid + " >/dev/null";
            if (system(command.c_str()) != 0) return -1;
        }
        passes.push_back(secondsSince(start));
    }
    return median(passes);
}

// Medians of whole processes, alternating, each reading the same device.
void wholeProcesses(const e2e::Simulator& sim, const std::string& udid) {
    const std::string env = "USBMUXD_SOCKET_ADDRESS=UNIX:" + sim.socketPath() + " ";
    const std::string ctl = std::string(ZEBRELO_CTL) + " --usbmuxd " + sim.socketPath() + " info " + udid + " >/dev/null 2>&1";
    const std::string stock = env + "ideviceinfo -u " + udid + " >/dev/null";
    std::vector<double> ours, theirs;
    for (int round = 0; round < 7; ++round) {
        auto start = steady_clock::now();
        if (system(ctl.c_str()) != 0) return (void)fprintf(stderr, "device_ready_bench: zebrelo-ctl info failed\n");
        ours.push_back(secondsSince(start));
        start = steady_clock::now();
        if (system(stock.c_str()) != 0) return (void)fprintf(stderr, "device_ready_bench: ideviceinfo failed\n");
        theirs.push_back(secondsSince(start));
    }
    printf("zebrelo-ctl info %.3f s, ideviceinfo %.3f s (medians of 7 whole processes)\n", median(ours), median(theirs));
    benchRow("zebrelo-ctl info, whole process (time)", benchFigure(median(ours), "s"), benchFigure(median(theirs), "s"),
             median(ours) / median(theirs), true, 3.0);
}

}  // namespace

int main() {
    if (system("command -v ideviceinfo >/dev/null") != 0) {
        fprintf(stderr, "device_ready_bench: ideviceinfo is not installed\n");
        return 1;
    }
    printf("%-8s %14s %18s %8s %10s %11s %8s %8s\n", "devices", "ready (s)", "ideviceinfo (s)", "ratio", "cores busy",
           "ms/device", "sim", "worker");
    double oneDevice = 0;
    for (int count : {1, 8, 32}) {
        e2e::Simulator sim;
        if (!sim.ready()) {
            fprintf(stderr, "device_ready_bench: the simulator did not start\n");
            return 1;
        }
        // Only the measured devices stay: the built-in one would be paired
        // on first sight, which is not what is timed here.
        for (const std::string& present : sim.udids()) sim.control("detach " + present);
        std::vector<std::string> udids;
        for (int i = 0; i < count; ++i) udids.push_back(sim.attach("builtin"));
        for (const std::string& udid : udids) {
            std::string pair = "USBMUXD_SOCKET_ADDRESS=UNIX:" + sim.socketPath() + " idevicepair -u " + udid + " pair >/dev/null";
            if (udid.empty() || system(pair.c_str()) != 0) {
                fprintf(stderr, "device_ready_bench: pairing %s failed\n", udid.c_str());
                return 1;
            }
        }
        double stock = ideviceinfoSeconds(sim, udids, count == 1 ? 7 : 1);
        for (const std::string& udid : udids) sim.control("detach " + udid);

        e2e::Worker worker(sim);
        if (!worker.connected()) {
            fprintf(stderr, "device_ready_bench: the worker did not start\n");
            return 1;
        }
        MachineBusy busy;
        const double simBefore = processCpuSeconds(sim.processId());
        const double workerBefore = processCpuSeconds(worker.link.workerPid());
        auto start = steady_clock::now();
        for (const std::string& udid : udids) sim.control("attach " + udid);
        for (const std::string& udid : udids) {
            if (udid.empty() || !worker.waitForReady(udid, seconds(120))) {
                fprintf(stderr, "device_ready_bench: a device never became ready\n");
                return 1;
            }
        }
        double ready = secondsSince(start);
        // Core time per device, the simulator's and the worker's together
        // (from their own accounts, in 10 ms ticks: too coarse for one
        // device). With the cores busy throughout, this bounds the row.
        const double busyShare = busy.share();
        const double simCpu = processCpuSeconds(sim.processId()) - simBefore;
        const double workerCpu = processCpuSeconds(worker.link.workerPid()) - workerBefore;
        auto perDevice = [&](double seconds) { return count > 1 ? 1000 * seconds / count : 0.0; };
        printf("%-8d %14.3f %18.3f %8.2f %9.0f%% %11.2f %8.2f %8.2f\n", count, ready, stock,
               stock > 0 ? ready / stock : 0.0, 100 * busyShare, perDevice(simCpu + workerCpu), perDevice(simCpu),
               perDevice(workerCpu));
        fflush(stdout);
        if (count == 1) {
            oneDevice = ready;
            benchRow("attach to ready, 1 device (time)", benchFigure(ready, "s"), benchFigure(stock, "s"), ready / stock,
                     true, 1.5);
            wholeProcesses(sim, udids.front());
        } else if (count == 32) {
            benchRow("attach to ready, 32 devices (time)", benchFigure(ready, "s"), benchFigure(stock, "s"),
                     ready / stock, true, 1.0);
            benchRow("attach to ready, 32 devices against 1 (time)", benchFigure(ready, "s"),
                     benchFigure(oneDevice, "s"), ready / oneDevice, true, 3.0);
        }
    }
    return 0;
}
