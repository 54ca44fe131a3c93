// 1701 at level 1 on a device with a 256 MiB media partition beside the same
// fill done directly with libimobiledevice's AFC client (8 MiB writes of
// zeros until the partition is full, then the file removed), in one run.
// Prints both rates and their ratio (aim: at least 0.9).
#include "bench_row.h"
#include "direct_afc.h"
#include "sim_harness.h"
#include "zeb_parent_restore.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

using Clock = std::chrono::steady_clock;

namespace {

constexpr uint32_t kWrite = 8u << 20;

double since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

}  // namespace

int main() {
    e2e::Simulator sim({"--profile", e2e::profileDir("iphone13-ios17-partition256m")});
    if (!sim.ready()) return fprintf(stderr, "simulator did not start\n"), 1;
    const std::vector<std::string> udids = sim.udids();
    if (udids.empty()) return fprintf(stderr, "no device\n"), 1;
    const std::string udid = udids.front();
    e2e::Worker worker(sim);
    if (!worker.connected() || !worker.waitForReady(udid, std::chrono::seconds(60)))
        return fprintf(stderr, "device not ready\n"), 1;
    setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + sim.socketPath()).c_str(), 1);

    double directSeconds = 1e9, workerSeconds = 1e9;
    int64_t filled = 0;
    for (int round = 0; round < 3; ++round) {
        auto start = Clock::now();
        {
            DirectAfc direct(udid);
            if (!direct.ready()) return fprintf(stderr, "direct AFC did not start\n"), 1;
            const int64_t free = direct.freeBytes();
            filled = direct.writeZeros("/fill-bench.bin", static_cast<uint64_t>(free), kWrite);
            direct.remove("/fill-bench.bin");
            if (filled <= 0) return fprintf(stderr, "the direct fill wrote nothing\n"), 1;
        }
        directSeconds = std::min(directSeconds, since(start));

        zparent::CommandRun run;
        run.taskId = worker.nextTaskId();
        run.idleTimeout = std::chrono::seconds(120);
        start = Clock::now();
        const zparent::LongCommandOutcome outcome = zparent::runFillFreeSpace(worker.link, run, udid, 1);
        workerSeconds = std::min(workerSeconds, since(start));
        if (outcome.code != 0) return fprintf(stderr, "1701 failed: %lld\n", static_cast<long long>(outcome.code)), 1;
    }
    const double mb = static_cast<double>(filled) / 1e6;
    printf("fill %.0f MB: worker %.2f s (%.1f MB/s), direct AFC %.2f s (%.1f MB/s)\n", mb, workerSeconds,
           mb / workerSeconds, directSeconds, mb / directSeconds);
    printf("ratio fill rate (worker / direct AFC, aim >= 0.9): %.2f\n", directSeconds / workerSeconds);
    benchRow("1701 fill 256 MiB free space (rate)", benchFigure(mb / workerSeconds, "MB/s"),
             benchFigure(mb / directSeconds, "MB/s"), directSeconds / workerSeconds, false, 0.9);
    return 0;
}
