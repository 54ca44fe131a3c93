// Command 1701: the free space of the media partition overwritten with
// zeros, once or twice, by files that are removed again.
#include "zeb_afc.h"
#include "zeb_fill_plan.h"
#include "zeb_module_erase.h"
#include "zeb_paged_reply.h"
#include "zeb_task_table.h"

#include <memory>

namespace {

const char kTaskCancelled[] = "Task cancelled.";

struct FillRun {
    AFCConnectionRef afc;
    ZEBDevice& device;
    DhTask* task;
    const zeb::PagedReply& events;
    const unsigned char* zeros;
    int64_t level;
    uint64_t total;
    TaskResult result;

    bool cancelled() {
        if (!task || !zeb::isCancelled(device.taskTable, task)) return false;
        result = {kCodeCancelled, kTaskCancelled};
        return true;
    }

    // One file of `writes` buffers; false when the pass must end (a cancel,
    // or a file that would not open). A failed write ends the file but
    // counts it whole: the fill ends by counting, not by the device.
    bool writeFile(int64_t counter, int writes) {
        AFCFileRef file = 0;
        const std::string name = erase::fillFileName(time(nullptr), counter);
        if (zeb::api().AFCFileRefOpen(afc, name.c_str(), 2, &file) != 0) {
            result = {kCodeEraseAfcFailed, {}};
            return false;
        }
        bool stopped = false;
        for (int i = 0; i < writes; ++i) {
            if (cancelled()) {
                stopped = true;
                break;
            }
            if (zeb::api().AFCFileRefWrite(afc, file, zeros, erase::kFillBufferBytes) != 0) break;
        }
        zeb::api().AFCFileRefClose(afc, file);
        return !stopped;
    }

    // Returns what the pass wrote.
    uint64_t pass(int64_t number, int64_t base) {
        const int writes = erase::kWritesPerPassUnit * static_cast<int>(number);
        uint64_t written = 0;
        int64_t best = 0, counter = 0;
        while (written < total) {
            if (cancelled() || !writeFile(++counter, writes)) break;
            written += static_cast<uint64_t>(writes) * erase::kFillBufferBytes;
            const int64_t percent = erase::fillPercent(written, total);
            if (percent > best) {
                best = percent;
                zeb::sendReplyEvent(events, 0, nullptr, nullptr, erase::fillProgress(base, percent, level));
            }
        }
        zeb::AfcRemoveTree(afc, erase::kFillFolder, false, false);
        return written;
    }
};

int64_t levelOf(const rapidjson::Document& json) {
    auto level = json.FindMember("level");
    if (level == json.MemberEnd() || !level->value.IsInt64()) return 0;
    return level->value.GetInt64();
}

}  // namespace

TaskResult ZEBModuleErase::fillFreeSpace(CommandContext& context) {
    ZEBDevice& device = *context.device;
    const int64_t level = levelOf(context.json);
    int32_t error = 0;
    ServicePtr service = zeb::StartService(device.handle, error, "com.apple.afc", nullptr, true);
    if (!service || !service->afc) return {kCodeEraseAfcFailed, "open afc error"};
    if (!zeb::AfcMakeDirectory(service->afc, erase::kFillFolder))
        return {kCodeFillFolderFailed, "mkdir /iostemp fail."};

    // One zero buffer for every write of every pass.
    std::shared_ptr<unsigned char[]> zeros(new unsigned char[erase::kFillBufferBytes]());
    const zeb::PagedReply events{context.packet, context.packet->commandType, context.uuid};
    const uint64_t total = device.data_free_size > 0 ? static_cast<uint64_t>(device.data_free_size) : 0;
    FillRun run{service->afc, device, context.task, events, zeros.get(), level, total, {}};
    if (context.task && zeb::isCancelled(device.taskTable, context.task)) return {};

    uint64_t lastWritten = 0;
    // At most two passes, whatever the level: the base may not pass 50.
    for (int64_t number = 1, base = 0; number <= level && base <= erase::kPassShare;
         ++number, base += erase::kPassShare) {
        if (run.cancelled()) break;
        lastWritten = run.pass(number, base);
    }
    zeb::AfcRemoveTree(service->afc, erase::kFillFolder, true, false);
    if (run.result.code == 0 && lastWritten < total) run.result.code = kCodeConversationBroke;
    return run.result;
}
