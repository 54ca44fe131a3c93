// Calendars, bookmarks and notes listed through the worker (command to
// report) beside libimobiledevice's mobilesync client reading the same
// class from the same simulator, in one run. Prints each pair's ratio (aim:
// at most 1.2).
#include "bench_measure.h"
#include "bench_row.h"
#include "direct_mobilesync.h"
#include "sim_harness.h"
#include "zeb_parent_sync_data.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr char kUdid[] = "00008110-001A2B3C4D5E6005";
constexpr int kRounds = 3;


// Seconds from the command to its report; negative on failure. `items`
// gets the number of listed elements (calendars, root trees, notes).
double listThroughWorker(e2e::Worker& worker, uint32_t command, size_t& items) {
    const uint64_t task = worker.nextTaskId();
    zparent::PagedItems list;
    const auto start = Clock::now();
    if (!worker.link.sendCommand(task, command, e2e::commandJson(kUdid))) return -1;
    for (;;) {
        auto event = worker.waitFor([&](const zparent::Event& e) { return e.frame.taskId == task; }, 120s);
        if (!event) return -1;
        if (zparent::isFinalReport(*event)) {
            items = list.items.Size();
            return event->code == 0 ? std::chrono::duration<double>(Clock::now() - start).count() : -1;
        }
        zparent::addToPagedItems(list, *event, command);
    }
}

}  // namespace

int main() {
    e2e::Simulator sim({"--profile", e2e::profileDir("iphone13-ios17-syncbench")});
    if (!sim.ready()) return fprintf(stderr, "simulator did not start\n"), 1;
    e2e::Worker worker(sim);
    if (!worker.connected() || !worker.waitForReady(kUdid, 60s)) return fprintf(stderr, "device not ready\n"), 1;
    setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + sim.socketPath()).c_str(), 1);

    const struct {
        const char* name;
        const char* dataClass;
        uint32_t command;
    } lists[] = {{"calendars", "com.apple.Calendars", 1500},
                 {"bookmarks", "com.apple.Bookmarks", 1400},
                 {"notes", "com.apple.Notes", 1200}};
    int status = 0;
    for (const auto& list : lists) {
        std::vector<double> direct, through;
        size_t records = 0, items = 0;
        for (int round = 0; round < kRounds; ++round) {
            const auto start = Clock::now();
            DirectRead reference = readAllRecords(kUdid, list.dataClass);
            if (!reference.ok) return fprintf(stderr, "direct read of %s failed: %s\n", list.name, reference.error.c_str()), 1;
            direct.push_back(std::chrono::duration<double>(Clock::now() - start).count());
            records = reference.records;
            const double seconds = listThroughWorker(worker, list.command, items);
            if (seconds < 0) return fprintf(stderr, "the worker's %s listing failed\n", list.name), 1;
            through.push_back(seconds);
        }
        const double ratio = median(through) / median(direct);
        printf("%s: worker %.3f s (%zu listed), direct mobilesync %.3f s (%zu records)\n", list.name, median(through),
               items, median(direct), records);
        printf("ratio %s list time (worker / direct mobilesync, aim <= 1.2): %.2f\n", list.name, ratio);
        benchRow(std::string("list ") + list.name + " (time)", benchFigure(median(through), "s"),
                 benchFigure(median(direct), "s"), ratio, true, 1.2);
    }
    return status;
}
