// A backup of the simulator's large content (about 2 GB) through the worker
// (1600, to the final event) beside `idevicebackup2 backup --full` of the
// same device, in one run. Prints MB/s of both, their ratio (aim: at least
// 1.0) and the worker's peak memory (aim: under 64 MB).
#include "bench_files.h"
#include "bench_row.h"
#include "sim_harness.h"
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

constexpr char kUdid[] = "00008110-001A2B3C4D5E6B20";


double peakMegabytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0) return std::atof(line.c_str() + 6) / 1024.0;
    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    const fs::path scratch = argc > 1 ? fs::path(argv[1]) : fs::temp_directory_path() / "zeb-backup-bench";
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    e2e::Simulator sim({"--profile", e2e::profileDir("iphone13-ios17-backup2g")});
    if (!sim.ready()) return fprintf(stderr, "simulator did not start\n"), 1;
    e2e::Worker worker(sim);
    if (!worker.connected() || !worker.waitForReady(kUdid, std::chrono::seconds(60)))
        return fprintf(stderr, "device not ready\n"), 1;

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
