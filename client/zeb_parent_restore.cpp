#include "zeb_parent_restore.h"

#include "zeb_parent_backup.h"

namespace zparent {

namespace {

// Progress events (packetStatus 2) are kept with their stage; the final
// event's error text is taken as it passes.
LongCommandOutcome runLong(ParentLink& link, const CommandRun& run, uint32_t command, const std::string& json,
                           const ProgressListener& onProgress) {
    LongCommandOutcome outcome;
    CommandRun longRun = run;
    longRun.isReport = [&](const Event& event) {
        const bool final = isFinalReport(event);
        if (final) outcome.error = finalErrorText(event);
        return final;
    };
    outcome.code = runCommand(link, longRun, command, json, std::nullopt, [&](const Event& event) {
        if (event.frame.packetStatus != 2) return;
        const StagedProgress step{static_cast<int32_t>(event.stage), event.code};
        outcome.progress.push_back(step);
        if (onProgress) onProgress(step);
    });
    return outcome;
}

std::string restoreJson(const std::string& udid, const RestoreSource& source) {
    return jsonStringObject(
        {{"uuid", udid}, {"path", source.folder}, {"sourceDeviceId", source.sourceId}, {"password", source.password}});
}

}  // namespace

bool restoreCompleted(int64_t code) { return code == 0 || code == 45; }

LongCommandOutcome runRestore(ParentLink& link, const CommandRun& run, const std::string& udid,
                              const RestoreSource& source, const ProgressListener& onProgress) {
    return runLong(link, run, 1601, restoreJson(udid, source), onProgress);
}

LongCommandOutcome runErase(ParentLink& link, const CommandRun& run, const std::string& udid,
                            const RestoreSource& source, const ProgressListener& onProgress) {
    return runLong(link, run, 1700, restoreJson(udid, source), onProgress);
}

LongCommandOutcome runFillFreeSpace(ParentLink& link, const CommandRun& run, const std::string& udid, int64_t level,
                                    const ProgressListener& onProgress) {
    CommandRun fillRun = run;
    fillRun.onInterrupt = [&] { sendCancel(link, run.taskId + 0x100000000ull, udid, run.taskId); };
    const std::string json = "{\"uuid\":" + jsonString(udid) + ",\"level\":" + std::to_string(level) + "}";
    return runLong(link, fillRun, 1701, json, onProgress);
}

}  // namespace zparent
