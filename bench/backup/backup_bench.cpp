// A backup of the simulator's large content (about 2 GB) through the worker
// (1600, to the final event) beside `idevicebackup2 backup --full` of the
// same device, in one run. Prints MB/s of both, their ratio (aim: at least
// 1.0) and the worker's peak memory (aim: under 64 MB).
#include "bench_measure.h"
#include "bench_row.h"
#include "large_backup_device.h"
#include "zeb_parent_backup.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

constexpr const char* kUdid = kLargeBackupUdid;



}  // namespace

int main(int argc, char** argv) {
    LargeBackupDevice bench;
    if (!bench.start(argc, argv, "zeb-backup-bench")) return 1;
    const fs::path& scratch = bench.scratch;
    e2e::Simulator& sim = *bench.sim;
    e2e::Worker& worker = *bench.worker;

    auto start = Clock::now();
    const std::string stock = "USBMUXD_SOCKET_ADDRESS=UNIX:" + sim.socketPath() + " " IDEVICEBACKUP2 " -u " + kUdid +
                              " backup --full " + (scratch / "stock").string() + " > /dev/null 2>&1";
    fs::create_directories(scratch / "stock");
    if (std::system(stock.c_str()) != 0) return fprintf(stderr, "idevicebackup2 failed\n"), 1;
    const double stockSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    const double stockMb = static_cast<double>(folderBytes(scratch / "stock")) / 1e6;
    fs::remove_all(scratch / "stock");

    zparent::CommandRun run;
    run.taskId = worker.nextTaskId();
    run.idleTimeout = std::chrono::seconds(120);
    start = Clock::now();
    const zparent::BackupOutcome outcome = zparent::runBackup(worker.link, run, kUdid, (scratch / "worker" / "").string());
    const double workerSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (outcome.code != 0) return fprintf(stderr, "the worker's backup failed: %lld %s\n", (long long)outcome.code, outcome.error.c_str()), 1;
    const double workerMb = static_cast<double>(folderBytes(outcome.folder)) / 1e6;
    const double peak = peakMegabytes(worker.link.workerPid());
    fs::remove_all(scratch);

    printf("backup: worker %.0f MB in %.2f s (%.1f MB/s), idevicebackup2 %.0f MB in %.2f s (%.1f MB/s)\n", workerMb,
           workerSeconds, workerMb / workerSeconds, stockMb, stockSeconds, stockMb / stockSeconds);
    printf("worker peak memory: %.1f MB (aim < 64)\n", peak);
    printf("ratio backup throughput (worker / idevicebackup2, aim >= 1.0): %.2f\n",
           (workerMb / workerSeconds) / (stockMb / stockSeconds));
    benchRow("1600 backup 2 GB (throughput)", benchFigure(workerMb / workerSeconds, "MB/s"),
             benchFigure(stockMb / stockSeconds, "MB/s"), (workerMb / workerSeconds) / (stockMb / stockSeconds), false, 1.0);
    return 0;
}
