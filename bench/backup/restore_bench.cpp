// A restore of the simulator's large content (about 2 GB) through the
// worker (1601, to the final event) beside `idevicebackup2 restore` of the
// same backup folder onto the same device, in one run. Prints MB/s of both
// and their ratio (aim: at least 1.0).
#include "bench_measure.h"
#include "bench_row.h"
#include "large_backup_device.h"
#include "zeb_parent_restore.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

constexpr const char* kUdid = kLargeBackupUdid;


int stockTool(const e2e::Simulator& sim, const std::string& arguments) {
    const std::string command = "USBMUXD_SOCKET_ADDRESS=UNIX:" + sim.socketPath() + " " IDEVICEBACKUP2 " -u " +
                                kUdid + " " + arguments + " > /dev/null 2>&1";
    return std::system(command.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    LargeBackupDevice bench;
    if (!bench.start(argc, argv, "zeb-restore-bench")) return 1;
    const fs::path& scratch = bench.scratch;
    e2e::Simulator& sim = *bench.sim;
    e2e::Worker& worker = *bench.worker;

    fprintf(stderr, "making the backup to restore...\n");
    if (stockTool(sim, "backup --full " + scratch.string()) != 0) return fprintf(stderr, "idevicebackup2 backup failed\n"), 1;
    const fs::path folder = scratch / kUdid / "";
    const double megabytes = static_cast<double>(folderBytes(folder)) / 1e6;

    // Alternating rounds, the best of each: the first read of the folder
    // warms the page cache for whoever comes second.
    double stockSeconds = 1e9, workerSeconds = 1e9;
    for (int round = 0; round < 2; ++round) {
        auto start = Clock::now();
        if (stockTool(sim, "restore --system --no-reboot " + scratch.string()) != 0)
            return fprintf(stderr, "idevicebackup2 restore failed\n"), 1;
        stockSeconds = std::min(stockSeconds, std::chrono::duration<double>(Clock::now() - start).count());

        zparent::CommandRun run;
        run.taskId = worker.nextTaskId();
        run.idleTimeout = std::chrono::seconds(120);
        start = Clock::now();
        const zparent::LongCommandOutcome outcome =
            zparent::runRestore(worker.link, run, kUdid, {folder.string(), kUdid, ""});
        workerSeconds = std::min(workerSeconds, std::chrono::duration<double>(Clock::now() - start).count());
        if (!zparent::restoreCompleted(outcome.code)) {
            fs::remove_all(scratch);
            return fprintf(stderr, "the worker's restore failed: %lld %s\n", (long long)outcome.code,
                           outcome.error.c_str()), 1;
        }
    }
    fs::remove_all(scratch);

    printf("restore of %.0f MB: worker %.2f s (%.1f MB/s), idevicebackup2 %.2f s (%.1f MB/s)\n", megabytes,
           workerSeconds, megabytes / workerSeconds, stockSeconds, megabytes / stockSeconds);
    printf("ratio restore throughput (worker / idevicebackup2, aim >= 1.0): %.2f\n", stockSeconds / workerSeconds);
    benchRow("1601 restore 2 GB (throughput)", benchFigure(megabytes / workerSeconds, "MB/s"),
             benchFigure(megabytes / stockSeconds, "MB/s"), stockSeconds / workerSeconds, false, 1.0);
    return 0;
}
