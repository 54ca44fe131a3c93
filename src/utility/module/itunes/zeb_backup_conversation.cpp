#include "zeb_backup_conversation.h"

#include "zeb_backup_templates.h"
#include "zeb_backup_upload.h"
#include "zeb_command_context.h"
#include "zeb_format.h"
#include "zeb_plist_bridge.h"
#include "zeb_sync_frames.h"

#include <glog/logging.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/statvfs.h>

#include <cinttypes>
#include <cstring>
#include <memory>

namespace {

struct MessageDeleter {
    void operator()(SyncMessage* message) const { FreeSyncMessage(message); }
};

const char kNoSuchFile[] = "No such file or directory";

void sendRaw(AMDServiceConnectionRef connection, const void* bytes, size_t length) {
    zeb::api().AMDServiceConnectionSend(connection, bytes, length);
}

void sendLength(AMDServiceConnectionRef connection, uint32_t length) {
    const uint8_t raw[4] = {static_cast<uint8_t>(length >> 24), static_cast<uint8_t>(length >> 16),
                            static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
    sendRaw(connection, raw, sizeof raw);
}

// Free bytes of the file system that holds the folder; false when there is
// no folder or the question fails.
bool freeBytes(const std::filesystem::path& root, int64_t& bytes) {
    struct statvfs info {};
    if (root.empty() || statvfs(root.c_str(), &info) != 0) return false;
    bytes = static_cast<int64_t>(info.f_bavail) * static_cast<int64_t>(info.f_frsize);
    return true;
}

}  // namespace

namespace backup {

TaskResult linkEnded(const BackupSession& session) {
    if (session.device && session.device->state == kDeviceDisconnected) return {kCodeDeviceDisconnected, {}};
    return {kCodeConversationBroke, kTaskError};
}

bool receiveMessage(BackupSession& session, SyncMessageHandler handler) {
    session.kind = kBackupNone;
    SyncReceiveEnd end = SyncReceiveEnd::Handled;
    return SyncReceive(session.connection, handler, &session, &end) != 0 && end == SyncReceiveEnd::Handled;
}

std::string resultInfo(const TaskResult& result) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("error");
    writer.String(result.text.c_str(), static_cast<rapidjson::SizeType>(result.text.size()));
    writer.EndObject();
    return buffer.GetString();
}

std::string fillText(const char* text, const std::string& value) {
    std::string out(text);
    const size_t slot = out.find("%s");
    if (slot != std::string::npos) out.replace(slot, 2, zeb::escapeXmlText(value));
    return out;
}

bool sendTemplate(AMDServiceConnectionRef connection, const std::string& text) {
    std::unique_ptr<SyncMessage, MessageDeleter> message(EncodeMessage(text.data(), static_cast<long>(text.size())));
    return message && SyncSendOnly(connection, message.get());
}

void sendDownloadRefusal(AMDServiceConnectionRef connection, const std::string& path) {
    sendLength(connection, static_cast<uint32_t>(path.size()));
    sendRaw(connection, path.data(), path.size());
    sendLength(connection, static_cast<uint32_t>(strlen(kNoSuchFile) + 1));
    const uint8_t code = 6;
    sendRaw(connection, &code, 1);
    sendRaw(connection, kNoSuchFile, strlen(kNoSuchFile));
    sendLength(connection, 0);
}

bool openConversation(BackupSession& session, const std::string& request) {
    // The device speaks first; its version list is read through unlooked-at.
    uint8_t prefix[4];
    size_t got = 0;
    while (got < sizeof prefix) {
        ssize_t n = zeb::api().AMDServiceConnectionReceive(session.connection, prefix + got, sizeof prefix - got);
        if (n < 1) return false;
        got += static_cast<size_t>(n);
    }
    uint64_t left = (uint64_t{prefix[0]} << 24) | (uint64_t{prefix[1]} << 16) | (uint64_t{prefix[2]} << 8) | prefix[3];
    if (left > kSyncMaxFrame) return false;
    uint8_t buffer[1024];
    while (left > 0) {
        ssize_t n = zeb::api().AMDServiceConnectionReceive(session.connection, buffer,
                                                           left < sizeof buffer ? static_cast<size_t>(left) : sizeof buffer);
        if (n < 1) return false;
        left -= static_cast<uint64_t>(n);
    }
    std::unique_ptr<SyncMessage, MessageDeleter> versions(EncodeMessage(kVersionsOk));
    SyncExchange(session.connection, versions.get(), BackupReadyHandler, nullptr);
    std::unique_ptr<SyncMessage, MessageDeleter> hello(EncodeMessage(kHello));
    SyncExchange(session.connection, hello.get(), BackupIgnoreHandler, nullptr);
    return sendTemplate(session.connection, request);
}

void ProgressStep::operator()(const BackupSession& session) {
    const int64_t hundredths = progressHundredths(session);
    if (hundredths <= sent) return;
    sent = hundredths;
    if (report) report(hundredths);
}

TaskResult runBackupLoop(BackupSession& session, const BackupLoopRules& rules, bool& clean) {
    clean = false;
    ProgressStep progress{rules.progress};
    // A conversation that stops short: what it left behind goes, unless the
    // device had reached the end. A link that closed or broke, whether
    // found by a read or by an answer that could not go out, is never a
    // backup done.
    auto cutOff = [&](TaskResult result) {
        clean = session.progress < 100.0;
        return result;
    };
    for (;;) {
        if (rules.cancelled && rules.cancelled()) return {6, "Task cancelled."};
        if (!receiveMessage(session, BackupMessageHandler)) return cutOff(linkEnded(session));
        progress(session);
        std::string answer;
        switch (session.kind) {
            case kBackupDownloadFiles:
                sendDownloadRefusal(session.connection, session.requested_file);
                answer = fillText(kStatusMulti, session.requested_file);
                break;
            case kBackupContentsOfDirectory: answer = kStatusOkDict; break;
            case kBackupGetFreeDiskSpace: {
                int64_t bytes = INT64_MAX;
                if (rules.reportRealFreeSpace) {
                    if (session.root_dir.empty()) return {0, {}};
                    // Left unanswered the device would wait for good: a
                    // folder that cannot be asked is a folder the backup
                    // cannot go into.
                    if (!freeBytes(session.root_dir, bytes)) return cutOff({kCodeConversationBroke, kTaskError});
                }
                char text[sizeof kStatusFreeSpace + 32];
                snprintf(text, sizeof text, kStatusFreeSpace, static_cast<long long>(bytes));
                answer = text;
                break;
            }
            case kBackupCreateDirectory: answer = kStatusOkString; break;
            case kBackupMoveItems:
            case kBackupRemoveItems: answer = kStatusOkDictB; break;
            case kBackupProcessMessage:
                if (session.has_error && session.progress < 100.0) {
                    LOG(INFO) << __FILE__ << " error: " << session.error_code
                              << " description: " << session.error_description;
                    clean = session.error_code != 0;
                    return {session.error_code, session.error_description};
                }
                answer = kStatusOkDictB;
                break;
            case kBackupUploadFiles: {
                const int32_t code = rules.receiveUpload ? rules.receiveUpload(session) : receiveUploadedFiles(session);
                if (code != 0) return cutOff({code, {}});
                answer = kStatusOkDictB;
                break;
            }
            case kBackupDisconnect:
                if (session.progress == 100.0) return {0, {}};
                return cutOff({kCodeDeviceDisconnected, {}});
            default: continue;  // no answer: the device goes on by itself
        }
        if (!sendTemplate(session.connection, answer)) return cutOff(linkEnded(session));
    }
}

}  // namespace backup
