// The worker's app commands beside the stock ideviceinstaller, on one
// simulator in one run: listing the 1,000 apps of a device (501, command to
// report, against `ideviceinstaller -l`) and installing a 100 MB package
// (504 against `ideviceinstaller -i`). Prints both ratios; the aims are a
// listing at most 1.5x the stock time and an install at least 0.9x its
// throughput.
#include "bench_row.h"
#include "sim_harness.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr char kUdid[] = "00008110-001A2B3C4D5E6999";
constexpr int kRounds = 3;

bool appReport(const zparent::Event& e) {
    return e.stage == 0 && (e.frame.packetStatus == 1 || e.frame.packetStatus == 5 ||
                            (e.frame.packetStatus == 6 && e.code != 0));
}

// Seconds from sending the command to its report; negative on failure.
double timeCommand(e2e::Worker& worker, uint32_t command, const std::optional<std::string>& tail, size_t* events) {
    const uint64_t task = worker.nextTaskId();
    auto start = Clock::now();
    if (!worker.link.sendCommand(task, command, e2e::commandJson(kUdid), tail)) return -1;
    size_t count = 0;
    for (;;) {
        auto event = worker.waitFor([&](const zparent::Event& e) { return e.frame.taskId == task; }, 300s);
        if (!event) return -1;
        if (appReport(*event)) {
            if (events) *events = count;
            return event->code == 0 ? std::chrono::duration<double>(Clock::now() - start).count() : -1;
        }
        ++count;
    }
}

double timeShell(const std::string& command) {
    auto start = Clock::now();
    if (std::system(command.c_str()) != 0) return -1;
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double best(double a, double b) { return a < 0 ? b : (b < 0 ? a : std::min(a, b)); }

}  // namespace

int main() {
    e2e::Simulator sim({"--profile", e2e::profileDir("iphone13-ios17-apps1000")});
    if (!sim.ready()) return fprintf(stderr, "simulator did not start\n"), 1;
    e2e::Worker worker(sim);
    if (!worker.connected() || !worker.waitForReady(kUdid, 60s)) return fprintf(stderr, "device not ready\n"), 1;
    const std::string stock = "USBMUXD_SOCKET_ADDRESS=UNIX:" + sim.socketPath() + " " IDEVICEINSTALLER " -u " + kUdid;

    double listWorker = -1, listStock = -1;
    size_t events = 0;
    for (int round = 0; round < kRounds; ++round) {
        listWorker = best(listWorker, timeCommand(worker, 501, std::nullopt, &events));
        listStock = best(listStock, timeShell(stock + " -l > /dev/null"));
    }
    printf("list 1000 apps: worker %.3f s (%zu events), ideviceinstaller -l %.3f s\n", listWorker, events, listStock);

    const fs::path package = fs::path(sim.folder) / "big.ipa";
    const std::string build = std::string(ZEBRELO_MAKE_IPA) + " " + package.string() +
                              " --id com.example.bench.big --payload-bytes 100000000 --icon-url http://127.0.0.1:1/x.png"
                              " > /dev/null";
    if (std::system(build.c_str()) != 0) return fprintf(stderr, "package not built\n"), 1;
    const double megabytes = static_cast<double>(fs::file_size(package)) / 1e6;
    double installWorker = -1, installStock = -1;
    for (int round = 0; round < kRounds; ++round) {
        installWorker = best(installWorker, timeCommand(worker, 504, "[\"" + package.string() + "\"]", nullptr));
        installStock = best(installStock, timeShell(stock + " -i " + package.string() + " > /dev/null"));
    }
    printf("install %.0f MB: worker %.2f s (%.1f MB/s), ideviceinstaller -i %.2f s (%.1f MB/s)\n", megabytes,
           installWorker, megabytes / installWorker, installStock, megabytes / installStock);

    if (listWorker <= 0 || listStock <= 0 || installWorker <= 0 || installStock <= 0) {
        fprintf(stderr, "a measurement failed\n");
        return 1;
    }
    printf("ratio list time (worker / ideviceinstaller, aim <= 1.5): %.2f\n", listWorker / listStock);
    printf("ratio install throughput (worker / ideviceinstaller, aim >= 0.9): %.2f\n", installStock / installWorker);
    benchRow("501 list 1,000 apps (time)", benchFigure(listWorker, "s"), benchFigure(listStock, "s"),
             listWorker / listStock, true, 1.5);
    benchRow("504 install 100 MB (throughput)", benchFigure(megabytes / installWorker, "MB/s"),
             benchFigure(megabytes / installStock, "MB/s"), installStock / installWorker, false, 0.9);
    return 0;
}
