// Command 1600: a backup of the device into a folder of the parent's
// choice, as the device drives it.
#include "zeb_backup_info_plist.h"
#include "zeb_backup_templates.h"
#include "zeb_paged_reply.h"
#include "zeb_module_itunes.h"
#include "zeb_paths.h"
#include "zeb_plist_bridge.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <ctime>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr int64_t kLatestTime = 32535194399;  // the end of year 3000

// "-YYYYmmddHHMMSS" of the local time, behind the device id in the folder name.
std::string folderSuffix() {
    time_t now = time(nullptr);
    if (now < 0 || now > kLatestTime) now = 0;
    tm local{};
    localtime_r(&now, &local);
    char text[20] = {0};
    strftime(text, sizeof text, "-%Y%m%d%H%M%S", &local);
    return text;
}

std::string backupDirInfo(const fs::path& folder) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("BackupDir");
    const std::string text = folder.string();
    writer.String(text.c_str(), static_cast<rapidjson::SizeType>(text.size()));
    writer.EndObject();
    return buffer.GetString();
}

}  // namespace

namespace zeb {

ServicePtr StartBackupService(ZEBDevice& device) {
    CFPropertyListRef options = XmlToPlist(backup::kStartOptions, sizeof backup::kStartOptions - 1);
    int32_t error = 0;
    ServicePtr service = StartService(device.handle, error, "com.apple.mobilebackup2",
                                      static_cast<CFDictionaryRef>(options), false);
    if (options) api().CFRelease(options);
    return service;
}

}  // namespace zeb

TaskResult ZEBModuleiTunes::backup(CommandContext& context, const rapidjson::Document& request) {
    ZEBDevice& device = *context.device;
    std::string path;
    auto given = request.FindMember("path");
    if (given != request.MemberEnd() && given->value.IsString()) path = given->value.GetString();

    BackupSession session;
    session.device_id = device.udid;
    session.device = &device;
    session.folder_suffix = folderSuffix();
    session.root_dir = path.empty() ? zeb::backupRoot() : fs::path(path);
    std::error_code ignored;
    if (!session.root_dir.empty()) fs::create_directories(session.root_dir, ignored);
    const fs::path target = session.root_dir / (device.udid + session.folder_suffix) / "";
    const zeb::PagedReply events{context.packet, context.packet->commandType, context.uuid};
    zeb::sendReplyEvent(events, 0, backupDirInfo(target).c_str(), nullptr);
    // A folder that cannot be made (a file or a link loop on the way, a name
    // too long) ends the backup here, before the device is asked and before
    // other backups of the device queue behind a conversation that cannot
    // go anywhere.
    fs::create_directories(target, ignored);
    if (session.root_dir.empty() || !fs::is_directory(target, ignored))
        return {kCodeConversationBroke, backup::kTaskError};
    backup::writeInfoPlist(device, context.packet, target);

    ServicePtr service = zeb::StartBackupService(device);
    if (!service) return {static_cast<int32_t>(kCodeBackupServiceFailed), "DeviceOpenAFCServiceFail"};
    session.connection = service->connection;
    TaskResult result;
    bool clean = true;  // a conversation that never opened made no backup
    if (!backup::openConversation(session, backup::fillText(backup::kBackupRequest, device.udid))) {
        result = backup::linkEnded(session);
    } else {
        backup::BackupLoopRules rules;
        rules.progress = [&](int64_t hundredths) { zeb::sendReplyEvent(events, 1, nullptr, nullptr, hundredths); };
        result = backup::runBackupLoop(session, rules, clean);
    }
    if (clean) {
        service.reset();
        zeb::deleteTree(target);
    }
    return result;
}
