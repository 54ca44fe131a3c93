// Time from attach to device-ready for 1, 8 and 32 simulated devices,
// beside the time the stock ideviceinfo takes to read the same devices'
// values from the same simulator in the same run. The devices are paired
// with this host first, so that neither side pays for pairing.
#include "sim_harness.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using namespace std::chrono;

namespace {

double secondsSince(steady_clock::time_point start) { return duration<double>(steady_clock::now() - start).count(); }

// One ideviceinfo read of the whole default domain per device.
double ideviceinfoSeconds(const e2e::Simulator& sim, const std::vector<std::string>& udids) {
    auto start = steady_clock::now();
    for (const std::string& udid : udids) {
        std::string command = "USBMUXD_SOCKET_ADDRESS=UNIX:" + sim.socketPath() + " ideviceinfo -u " + udid + " >/dev/null";
        if (system(command.c_str()) != 0) return -1;
    }
    return secondsSince(start);
}

}  // namespace

int main() {
    if (system("command -v ideviceinfo >/dev/null") != 0) {
        fprintf(stderr, "device_ready_bench: ideviceinfo is not installed\n");
        return 1;
    }
    printf("%-8s %14s %18s %8s\n", "devices", "ready (s)", "ideviceinfo (s)", "ratio");
    for (int count : {1, 8, 32}) {
        e2e::Simulator sim;
        if (!sim.ready()) {
            fprintf(stderr, "device_ready_bench: the simulator did not start\n");
            return 1;
        }
        std::vector<std::string> udids;
        for (int i = 0; i < count; ++i) udids.push_back(sim.attach("builtin"));
        for (const std::string& udid : udids) {
            std::string pair = "USBMUXD_SOCKET_ADDRESS=UNIX:" + sim.socketPath() + " idevicepair -u " + udid + " pair >/dev/null";
            if (udid.empty() || system(pair.c_str()) != 0) {
                fprintf(stderr, "device_ready_bench: pairing %s failed\n", udid.c_str());
                return 1;
            }
        }
        double stock = ideviceinfoSeconds(sim, udids);
        for (const std::string& udid : udids) sim.control("detach " + udid);

        e2e::Worker worker(sim);
        if (!worker.connected()) {
            fprintf(stderr, "device_ready_bench: the worker did not start\n");
            return 1;
        }
        auto start = steady_clock::now();
        for (const std::string& udid : udids) sim.control("attach " + udid);
        for (const std::string& udid : udids) {
            if (udid.empty() || !worker.waitForReady(udid, seconds(120))) {
                fprintf(stderr, "device_ready_bench: a device never became ready\n");
                return 1;
            }
        }
        double ready = secondsSince(start);
        printf("%-8d %14.3f %18.3f %8.2f\n", count, ready, stock, stock > 0 ? ready / stock : 0.0);
        fflush(stdout);
    }
    return 0;
}
