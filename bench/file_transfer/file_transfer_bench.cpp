// The worker's file commands against direct AFC, on one simulator, in one
// run: 702 pull and 703 push of a 256 MB file, and 701 of a tree of 10,000
// small files. Prints each ratio (worker throughput / direct throughput)
// and the worker's peak memory during the pull.
#include "bench_row.h"
#include "direct_afc.h"
#include "sim_harness.h"
#include "zeb_parent_transfer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

double seconds(const std::function<void()>& work) {
    auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The worker's peak resident set, from the kernel's high-water mark.
long peakKiB(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("VmHWM:", 0) == 0) return atol(line.c_str() + 6);
    return -1;
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
    double directPull = 1e9, workerPull = 1e9, directPush = 1e9, workerPush = 1e9;
    bool pulled = true, pushed = true;
    long peak = 0;
    for (int round = 0; round < kRounds; ++round) {
        directPull = std::min(directPull, seconds([&] {
            pulled &= direct.readFile("/Bench/big.bin", scratch / "direct.bin") == static_cast<int64_t>(fileSize);
        }));
        workerPull = std::min(workerPull, seconds([&] {
            pulled &= zparent::pullFile(worker.link, ++task, udid, "/Bench/big.bin", scratch / "pulled.bin", options).ok;
        }));
        peak = std::max(peak, peakKiB(worker.link.workerPid()));
        fs::remove(scratch / "direct.bin");
        fs::remove(scratch / "pulled.bin");

        directPush = std::min(directPush, seconds([&] {
            pushed &= direct.writeFile(scratch / "upload.bin", "/Bench/direct-up.bin") == static_cast<int64_t>(fileSize);
        }));
        workerPush = std::min(workerPush, seconds([&] {
            pushed &= zparent::pushFile(worker.link, ++task, udid, scratch / "upload.bin", {"/Bench/", "", -1}, options).ok;
        }));
        direct.remove("/Bench/direct-up.bin");
        direct.remove("/Bench/upload.bin");
    }

    int64_t directFiles = 0;
    double directTree = seconds([&] { directFiles = direct.copyTree("/Bench/tree", scratch / "direct-tree"); });
    zparent::CopyResult copied;
    double workerTree = seconds([&] {
        copied = zparent::copyItems(worker.link, ++task, udid, {{"tree", "/Bench/tree", (scratch / "worker").string()}}, 600s);
    });

    printf("702 pull %.0f MB: worker %.2f s (%.1f MB/s), direct AFC %.2f s (%.1f MB/s), ratio %.2f%s\n", mb, workerPull,
           mb / workerPull, directPull, mb / directPull, directPull / workerPull, pulled ? "" : " [FAILED]");
    printf("703 push %.0f MB: worker %.2f s (%.1f MB/s), direct AFC %.2f s (%.1f MB/s), ratio %.2f%s\n", mb, workerPush,
           mb / workerPush, directPush, mb / directPush, directPush / workerPush, pushed ? "" : " [FAILED]");
    printf("701 tree of %d files: worker %.2f s, direct AFC %.2f s (%lld files), ratio %.2f%s\n", treeFiles, workerTree,
           directTree, static_cast<long long>(directFiles), directTree / workerTree, copied.code == 0 ? "" : " [FAILED]");
    printf("worker peak memory during the pull: %.1f MB\n", peak / 1024.0);
    benchRow("702 pull " + std::to_string(static_cast<int>(mb)) + " MB (throughput)", benchFigure(mb / workerPull, "MB/s"),
             benchFigure(mb / directPull, "MB/s"), directPull / workerPull, false, 0.9);
    benchRow("703 push " + std::to_string(static_cast<int>(mb)) + " MB (throughput)", benchFigure(mb / workerPush, "MB/s"),
             benchFigure(mb / directPush, "MB/s"), directPush / workerPush, false, 0.9);
    return pulled && pushed && copied.code == 0 ? 0 : 1;
}
