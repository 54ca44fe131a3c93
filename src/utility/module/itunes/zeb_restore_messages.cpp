#include "zeb_restore_messages.h"

#include "zeb_backup_conversation.h"
#include "zeb_backup_templates.h"
#include "zeb_format.h"
#include "zeb_plist_bridge.h"

namespace backup {

namespace {

// Every string entry that holds the source id names a file of the backup;
// the host path is what follows the id and its separator.
void takeRequestedFiles(BackupSession& session, const PlistVariant& files) {
    for (const PlistVariant& entry : files.array()) {
        if (entry.tag() != VariantTag::String) continue;
        const std::string& path = entry.text();
        if (session.source_id.empty() || path.find(session.source_id) == std::string::npos) continue;
        if (path.size() <= session.source_id.size()) continue;
        session.downloads.push_back({path, path.substr(session.source_id.size() + 1)});
    }
}

void walkDownloadFiles(BackupSession& session, const PlistVariant& message, size_t name) {
    for (size_t i = name + 1; i < message.array().size(); ++i) {
        const PlistVariant& item = message.array()[i];
        if (item.tag() == VariantTag::Double) {
            session.progress = item.real();
        } else if (item.empty()) {
            return;  // an empty array: the tree keeps no empty arrays, only an empty value
        } else if (item.tag() == VariantTag::Array) {
            takeRequestedFiles(session, item);
        }
    }
}

}  // namespace

bool applyRestoreMessage(BackupSession& session, const PlistVariant& message) {
    for (size_t i = 0; i < message.array().size(); ++i) {
        const PlistVariant& item = message.array()[i];
        if (item.tag() != VariantTag::String) continue;
        const int32_t kind = messageKind(item.text());
        if (kind != kBackupDownloadFiles && kind != kBackupDisconnect && kind != kBackupProcessMessage) continue;
        session.kind = kind;
        if (kind == kBackupDownloadFiles) walkDownloadFiles(session, message, i);
        if (kind == kBackupProcessMessage) walkProcessMessage(session, message, i);
        return true;
    }
    return false;
}

std::string restoreRequestText(const std::string& source, const std::string& target, bool encrypted,
                               const std::string& password) {
    std::string text = ZEB_BACKUP_PROLOGUE_A
        "<array><string>DLMessageProcessMessage</string><dict><key>MessageName</key><string>Restore</string>"
        "<key>Options</key><dict><key>RestoreDontCopyBackup</key><true/>";
    if (encrypted) text += "<key>Password</key><string>" + zeb::escapeXmlText(password) + "</string>";
    text += "</dict><key>SourceIdentifier</key><string>" + zeb::escapeXmlText(source) +
            "</string><key>TargetIdentifier</key><string>" + zeb::escapeXmlText(target) +
            "</string></dict></array>" ZEB_PLIST_END;
    return text;
}

}  // namespace backup

void RestoreMessageHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    auto& session = *static_cast<BackupSession*>(context);
    *keepWaiting = true;
    *result = 1;
    PlistVariant frame;
    const PlistVariant* message = DecodeFrame(bytes, length, frame) ? backup::frameMessage(frame) : nullptr;
    if (!message || message->tag() != VariantTag::Array) {
        *keepWaiting = false;
        *result = 0;
        return;
    }
    if (backup::applyRestoreMessage(session, *message)) *keepWaiting = false;
}
