// The worker's file commands against direct AFC, on one simulator, in one
// run: 702 pull and 703 push of a 256 MB file, and 701 of a tree of 10,000
// small files. Prints each ratio (worker throughput / direct throughput)
// and the worker's peak memory during the pull.
#include "bench_measure.h"
#include "bench_row.h"
#include "direct_afc.h"
#include "link_leg.h"
#include "sim_harness.h"
#include "zeb_parent_transfer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>
#include <vector>

#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

// A side's best round: its time, how busy the cores were meanwhile, and
// the core time the processes of the run (simulator, worker, this one as the
// parent or the direct client) spent on it.
struct Round {
    double seconds = 1e9;
    double busy = 0;
    double cpu = 0;
};

std::vector<pid_t> involved = {getpid()};

double involvedCpuSeconds() {
    double total = 0;
    for (pid_t pid : involved) total += processCpuSeconds(pid);
    return total;
}

void timeRound(Round& best, const std::function<void()>& work) {
    MachineBusy busy;
    const double cpuBefore = involvedCpuSeconds();
    auto start = Clock::now();
    work();
    const double took = std::chrono::duration<double>(Clock::now() - start).count();
    if (took < best.seconds) best = {took, busy.share(), involvedCpuSeconds() - cpuBefore};
}

double seconds(const std::function<void()>& work) {
    Round round;
    timeRound(round, work);
    return round.seconds;
}

void writePattern(const fs::path& path, size_t size) {
    std::ofstream out(path, std::ios::binary);
    std::string block(1 << 20, '\0');
    for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>((i * 131) >> 3);
    for (size_t done = 0; done < size; done += block.size()) out.write(block.data(), static_cast<std::streamsize>(std::min(block.size(), size - done)));
}

}  // namespace

int main(int argc, char** argv) {
    const size_t fileSize = argc > 1 ? strtoull(argv[1], nullptr, 10) << 20 : 256u << 20;
    const int treeFiles = argc > 2 ? atoi(argv[2]) : 10000;
    e2e::Simulator sim;
    if (!sim.ready()) return fprintf(stderr, "simulator did not start\n"), 1;
    setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + sim.socketPath()).c_str(), 1);
    e2e::Worker worker(sim);
    involved.push_back(sim.processId());
    involved.push_back(worker.link.workerPid());
    auto ready = worker.waitFor([](const zparent::Event& e) { return e.frame.commandType == 1; }, 30s);
    if (!ready) return fprintf(stderr, "device not ready\n"), 1;
    const std::string udid = ready->uuid;
    const fs::path media = fs::path(sim.folder) / "state" / udid / "media";
    const fs::path scratch = fs::path(sim.folder) / "bench";
    fs::create_directories(scratch);
    fs::create_directories(media / "Bench");
    writePattern(media / "Bench/big.bin", fileSize);
    writePattern(scratch / "upload.bin", fileSize);
    for (int i = 0; i < treeFiles; ++i) {
        fs::path file = media / "Bench/tree" / ("d" + std::to_string(i / 100)) / ("f" + std::to_string(i) + ".txt");
        fs::create_directories(file.parent_path());
        std::ofstream(file) << "small file " << i;
    }

    DirectAfc direct(udid);
    if (!direct.ready()) return fprintf(stderr, "direct AFC did not start\n"), 1;
    zparent::TransferOptions options;
    options.pieceTimeout = 60s;
    uint64_t task = 1;
    const double mb = static_cast<double>(fileSize) / (1 << 20);

    // Alternating rounds, the best of each: one round on a shared machine
    // swings by a factor of two.
    constexpr int kRounds = 3;
    Round directPull, workerPull, directPush, workerPush;
    bool pulled = true, pushed = true;
    double peak = 0;
    for (int round = 0; round < kRounds; ++round) {
        timeRound(directPull, [&] {
            pulled &= direct.readFile("/Bench/big.bin", scratch / "direct.bin") == static_cast<int64_t>(fileSize);
        });
        timeRound(workerPull, [&] {
            pulled &= zparent::pullFile(worker.link, ++task, udid, "/Bench/big.bin", scratch / "pulled.bin", options).ok;
        });
        peak = std::max(peak, peakMegabytes(worker.link.workerPid()));
        fs::remove(scratch / "direct.bin");
        fs::remove(scratch / "pulled.bin");

        timeRound(directPush, [&] {
            pushed &= direct.writeFile(scratch / "upload.bin", "/Bench/direct-up.bin") == static_cast<int64_t>(fileSize);
        });
        timeRound(workerPush, [&] {
            pushed &= zparent::pushFile(worker.link, ++task, udid, scratch / "upload.bin", {"/Bench/", "", -1}, options).ok;
        });
        direct.remove("/Bench/direct-up.bin");
        direct.remove("/Bench/upload.bin");
    }

    int64_t directFiles = 0;
    double directTree = seconds([&] { directFiles = direct.copyTree("/Bench/tree", scratch / "direct-tree"); });
    zparent::CopyResult copied;
    double workerTree = seconds([&] {
        copied = zparent::copyItems(worker.link, ++task, udid, {{"tree", "/Bench/tree", (scratch / "worker").string()}}, 600s);
    });

    // The cores' busy share says what bounds each side: both cores busy is
    // the machine; idle cores are waiting (the push's turn-taking).
    // With every core busy a side needs at least its core time over the
    // cores: that bounds the ratio however the stages overlap.
    const double cores = static_cast<double>(std::max(1u, std::thread::hardware_concurrency()));
    auto line = [&](const char* what, const Round& worker, const Round& direct, bool ok) {
        printf("%s %.0f MB: worker %.2f s (%.1f MB/s, cores %.0f%% busy, core time %.2f s), direct AFC %.2f s "
               "(%.1f MB/s, cores %.0f%% busy, core time %.2f s), ratio %.2f (at most %.2f on %.0f cores)%s\n",
               what, mb, worker.seconds, mb / worker.seconds, 100 * worker.busy, worker.cpu, direct.seconds,
               mb / direct.seconds, 100 * direct.busy, direct.cpu, direct.seconds / worker.seconds,
               worker.cpu > 0 ? direct.seconds / (worker.cpu / cores) : 0.0, cores, ok ? "" : " [FAILED]");
    };
    line("702 pull", workerPull, directPull, pulled);
    line("703 push", workerPush, directPush, pushed);
    // An upload piece waits for its turn: the parent sends it only once the
    // worker has written the one before. The link leg and the device's write
    // add up, whatever either side does, and bound the ratio.
    Round linkLeg;
    for (int round = 0; round < kRounds; ++round) timeRound(linkLeg, [&] {
        if (linkLegSeconds(fileSize, 2u << 20) < 0) pushed = false;
    });
    printf("703 push bound: the parent-to-worker leg alone %.2f s; in turn with the direct write (%.2f s) the ratio "
           "comes to about %.2f (the parent reads ahead, so a run can beat it)\n",
           linkLeg.seconds, directPush.seconds, directPush.seconds / (linkLeg.seconds + directPush.seconds));
    printf("701 tree of %d files: worker %.2f s, direct AFC %.2f s (%lld files), ratio %.2f%s\n", treeFiles, workerTree,
           directTree, static_cast<long long>(directFiles), directTree / workerTree, copied.code == 0 ? "" : " [FAILED]");
    printf("worker peak memory during the pull: %.1f MB\n", peak);
    benchRow("702 pull " + std::to_string(static_cast<int>(mb)) + " MB (throughput)", benchFigure(mb / workerPull.seconds, "MB/s"),
             benchFigure(mb / directPull.seconds, "MB/s"), directPull.seconds / workerPull.seconds, false, 0.9);
    benchRow("703 push " + std::to_string(static_cast<int>(mb)) + " MB (throughput)", benchFigure(mb / workerPush.seconds, "MB/s"),
             benchFigure(mb / directPush.seconds, "MB/s"), directPush.seconds / workerPush.seconds, false, 0.9);
    return pulled && pushed && copied.code == 0 ? 0 : 1;
}
