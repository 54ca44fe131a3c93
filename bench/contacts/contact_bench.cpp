// Listing 20,000 contacts with two children each through the worker
// (command 100, from the command to its report) beside libimobiledevice's
// mobilesync client reading the same records from the same simulator, in
// one run. Prints both times, their ratio (aim: at most 1.2) and the
// worker's peak memory (aim: under 100 MB).
#include "bench_measure.h"
#include "bench_row.h"
#include "direct_mobilesync.h"
#include "sim_harness.h"
#include "zeb_parent_contacts.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr char kUdid[] = "00008110-001A2B3C4D5E6020";
constexpr int kRounds = 3;

struct WorkerRead {
    double seconds = -1;
    double firstEvent = -1;  // the read from the device is over: the reply begins
    double lastEvent = -1;   // to the last list event, ahead of the report
    int64_t count = 0;
    size_t records = 0;
};

WorkerRead listThroughWorker(e2e::Worker& worker) {
    WorkerRead read;
    const uint64_t task = worker.nextTaskId();
    zparent::PagedList contacts, groups;
    const auto start = Clock::now();
    if (!worker.link.sendCommand(task, 100, e2e::commandJson(kUdid))) return read;
    for (;;) {
        auto event = worker.waitFor([&](const zparent::Event& e) { return e.frame.taskId == task; }, 120s);
        if (!event) return read;
        const double at = std::chrono::duration<double>(Clock::now() - start).count();
        if (zparent::isFinalReport(*event)) {
            if (event->code == 0) read.seconds = at;
            break;
        }
        if (read.firstEvent < 0) read.firstEvent = at;
        read.lastEvent = at;
        if (!zparent::addToPagedList(groups, *event, 101)) zparent::addToPagedList(contacts, *event, 100);
    }
    read.count = contacts.count;
    read.records = contacts.records.MemberCount();
    return read;
}


}  // namespace

int main() {
    e2e::Simulator sim({"--profile", e2e::profileDir("iphone13-ios17-contacts20k")});
    if (!sim.ready()) return fprintf(stderr, "simulator did not start\n"), 1;
    e2e::Worker worker(sim);
    if (!worker.connected() || !worker.waitForReady(kUdid, 60s)) return fprintf(stderr, "device not ready\n"), 1;
    setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + sim.socketPath()).c_str(), 1);

    const double idle = peakMegabytes(worker.link.workerPid());
    std::vector<double> direct, through, lastEvents;
    for (int round = 0; round < kRounds; ++round) {
        auto start = Clock::now();
        DirectRead reference = readAllRecords(kUdid, "com.apple.Contacts");
        const double directSeconds = std::chrono::duration<double>(Clock::now() - start).count();
        if (!reference.ok) return fprintf(stderr, "direct read failed: %s\n", reference.error.c_str()), 1;
        const double cpuBefore = processCpuSeconds(worker.link.workerPid());
        WorkerRead read = listThroughWorker(worker);
        const double workerCpu = processCpuSeconds(worker.link.workerPid()) - cpuBefore;
        if (read.seconds < 0) return fprintf(stderr, "the worker's listing failed\n"), 1;
        printf("round %d: direct %.3f s (%zu records, %zu pages), worker %.3f s (%lld contacts; device read done "
               "at %.3f s, last event %.3f s; worker CPU %.2f s)\n",
               round + 1, directSeconds, reference.records, reference.pages, read.seconds,
               static_cast<long long>(read.count), read.firstEvent, read.lastEvent, workerCpu);
        direct.push_back(directSeconds);
        through.push_back(read.seconds);
        lastEvents.push_back(read.lastEvent);
    }
    const double peak = peakMegabytes(worker.link.workerPid());
    printf("list 20000 contacts: worker median %.3f s (last event %.3f s), direct mobilesync median %.3f s\n",
           median(through), median(lastEvents), median(direct));
    printf("worker peak memory: %.1f MB (aim < 100; %.1f MB before the first listing)\n", peak, idle);
    printf("ratio list time (worker / direct mobilesync, aim <= 1.2): %.2f\n", median(through) / median(direct));
    benchRow("100 list 20,000 contacts (time)", benchFigure(median(through), "s"), benchFigure(median(direct), "s"),
             median(through) / median(direct), true, 1.2);
    return 0;
}
