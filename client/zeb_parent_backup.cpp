#include "zeb_parent_backup.h"

#include "zeb_json_parse.h"

namespace zparent {

std::string finalErrorText(const Event& event) {
    rapidjson::Document info;
    zeb::parseJson(info, event.info.c_str(), event.info.size());
    if (!info.IsObject() || !info.HasMember("error") || !info["error"].IsString()) return {};
    return info["error"].GetString();
}

BackupOutcome runBackup(ParentLink& link, const CommandRun& run, const std::string& udid, const std::string& folder,
                        const std::function<void(int64_t, const std::string&)>& onProgress) {
    BackupOutcome outcome;
    CommandRun backupRun = run;
    std::string lastError;
    backupRun.isReport = [&](const Event& event) {
        const bool final = isFinalReport(event);
        if (final) lastError = finalErrorText(event);
        return final;
    };
    const std::string json = "{\"uuid\":" + jsonString(udid) + ",\"path\":" + jsonString(folder) + "}";
    outcome.code = runCommand(link, backupRun, 1600, json, std::nullopt, [&](const Event& event) {
        if (event.frame.packetStatus != 2) return;
        if (event.stage == 0) {
            rapidjson::Document info;
            zeb::parseJson(info, event.info.c_str(), event.info.size());
            if (info.IsObject() && info.HasMember("BackupDir") && info["BackupDir"].IsString())
                outcome.folder = info["BackupDir"].GetString();
        } else if (event.stage == 1) {
            outcome.progress.push_back(event.code);
            if (onProgress) onProgress(event.code, outcome.folder);
        }
    });
    outcome.error = lastError;
    return outcome;
}

BackupListing listBackups(ParentLink& link, const CommandRun& run, const std::vector<std::string>& folders) {
    BackupListing listing;
    const std::string json = "{\"uuid\":\"\",\"paths\":" + jsonStringArray(folders) + "}";
    listing.code = runCommand(link, run, 1602, json, std::nullopt, [&](const Event& event) {
        if (event.frame.packetStatus != 2) return;
        rapidjson::Document record;
        zeb::parseJson(record, event.info.c_str(), event.info.size());
        if (!record.IsObject() || !record.HasMember("Path") || !record["Path"].IsString()) return;
        const std::string path = record["Path"].GetString();
        if (event.stage == 0) {
            listing.firstSeen.push_back(path);
        } else if (event.stage == 1) {
            auto& allocator = listing.records.GetAllocator();
            listing.records.AddMember(rapidjson::Value(path.c_str(), allocator), rapidjson::Value(record, allocator),
                                      allocator);
        }
    });
    return listing;
}

}  // namespace zparent
