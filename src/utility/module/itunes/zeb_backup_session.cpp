#include "zeb_backup_session.h"

#include "zeb_plist_bridge.h"

#include <strings.h>

#include <cmath>
#include <map>
#include <system_error>

namespace fs = std::filesystem;

namespace backup {

int32_t messageKind(const std::string& name) {
    static const std::map<std::string, int32_t> kinds{
        {"DLMessageDownloadFiles", kBackupDownloadFiles},   {"DLContentsOfDirectory", kBackupContentsOfDirectory},
        {"DLMessageGetFreeDiskSpace", kBackupGetFreeDiskSpace}, {"DLMessageCreateDirectory", kBackupCreateDirectory},
        {"DLMessageMoveItems", kBackupMoveItems},           {"DLMessageRemoveFiles", kBackupRemoveFiles},
        {"DLMessageDisconnect", kBackupDisconnect},         {"DLMessageCopyItem", kBackupCopyItem},
        {"DLMessageRemoveItems", kBackupRemoveItems},       {"DLMessageProcessMessage", kBackupProcessMessage},
        {"DLMessageUploadFiles", kBackupUploadFiles},
    };
    auto found = kinds.find(name);
    return found == kinds.end() ? kBackupNone : found->second;
}

fs::path placeDevicePath(const BackupSession& session, const std::string& devicePath) {
    fs::path relative(devicePath);
    if (devicePath.empty() || relative.is_absolute()) return {};
    for (const auto& part : relative)
        if (part == "..") return {};
    std::string placed = devicePath;
    const size_t id = session.device_id.empty() ? std::string::npos : placed.find(session.device_id);
    if (id != std::string::npos) placed.insert(id + session.device_id.size(), session.folder_suffix);
    return session.root_dir / placed;
}

int64_t progressHundredths(const BackupSession& session) {
    const double hundredths = std::floor(session.progress * 100.0);
    if (!(hundredths > 0)) return 0;
    return hundredths > 10000 ? 10000 : static_cast<int64_t>(hundredths);
}

namespace {

const PlistVariant* element(const PlistVariant& message, size_t index) { return message.At(index); }

void createDirectory(const BackupSession& session, const PlistVariant& message) {
    const PlistVariant* path = element(message, 1);
    if (!path || path->tag() != VariantTag::String) return;
    const fs::path target = placeDevicePath(session, path->text());
    if (target.empty()) return;
    std::error_code ignored;
    fs::create_directories(target, ignored);
}

void moveItems(const BackupSession& session, const PlistVariant& message) {
    const PlistVariant* moves = element(message, 1);
    if (!moves || moves->tag() != VariantTag::Dictionary || !moves->dictionary()) return;
    for (const auto& [from, to] : *moves->dictionary()) {
        if (to.tag() != VariantTag::String) continue;
        const fs::path source = placeDevicePath(session, from), target = placeDevicePath(session, to.text());
        if (source.empty() || target.empty()) continue;
        std::error_code ignored;
        if (!fs::exists(target, ignored)) fs::rename(source, target, ignored);
    }
}

void removeItems(const BackupSession& session, const PlistVariant& message) {
    const PlistVariant* items = element(message, 1);
    if (!items || items->tag() != VariantTag::Array) return;
    for (const PlistVariant& item : items->array()) {
        if (item.tag() != VariantTag::String) continue;
        const fs::path target = placeDevicePath(session, item.text());
        if (target.empty()) continue;
        std::error_code ignored;
        if (fs::is_directory(target, ignored))
            fs::remove_all(target, ignored);
        else
            fs::remove(target, ignored);
    }
}

// Every kind but these three carries the overall progress as its first real.
void takeProgress(BackupSession& session, const PlistVariant& message) {
    if (session.kind == kBackupRemoveFiles || session.kind == kBackupDisconnect || session.kind == kBackupCopyItem)
        return;
    if (message.array().size() < 2) return;
    for (const PlistVariant& item : message.array()) {
        if (item.tag() == VariantTag::Double) {
            session.progress = item.real();
            return;
        }
    }
}

}  // namespace

// From `from` on: the first real is the progress and ends the walk;
// dictionaries ahead of it may carry the device's error, and an ErrorCode of
// 0 is the device's verdict all the same.
void walkProcessMessage(BackupSession& session, const PlistVariant& message, size_t from) {
    for (size_t i = from; i < message.array().size(); ++i) {
        const PlistVariant& item = message.array()[i];
        if (item.tag() == VariantTag::Double) {
            session.progress = item.real();
            return;
        }
        if (item.tag() != VariantTag::Dictionary || !item.dictionary()) continue;
        int64_t code = 0;
        const PlistVariant* errorCode = item.dictionary()->Find("ErrorCode");
        if (errorCode && errorCode->ToInteger(code)) {
            session.error_code = static_cast<int32_t>(code);
            session.has_error = true;
        }
        const PlistVariant* description = item.dictionary()->Find("ErrorDescription");
        if (description && description->tag() == VariantTag::String) session.error_description = description->text();
    }
}

const PlistVariant* frameMessage(const PlistVariant& frame) {
    if (frame.tag() != VariantTag::Array || frame.array().empty()) return nullptr;
    return &frame.array().front();
}

void applyBackupMessage(BackupSession& session, const PlistVariant& message) {
    switch (session.kind) {
        case kBackupDownloadFiles: {
            const PlistVariant* files = element(message, 1);
            if (!files || files->tag() != VariantTag::Array || files->array().empty()) return;  // no progress either
            const PlistVariant& first = files->array().front();
            session.requested_file = first.tag() == VariantTag::String ? first.text() : std::string();
            break;
        }
        case kBackupCreateDirectory: createDirectory(session, message); break;
        case kBackupMoveItems: moveItems(session, message); break;
        case kBackupRemoveItems: removeItems(session, message); break;
        case kBackupProcessMessage:
            if (message.array().size() > 1) walkProcessMessage(session, message, 0);
            break;
        default: break;
    }
    takeProgress(session, message);
}

}  // namespace backup


void BackupReadyHandler(void*, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    *keepWaiting = false;
    PlistVariant frame;
    if (!DecodeFrame(bytes, length, frame)) return;
    const PlistVariant* message = backup::frameMessage(frame);
    if (!message || message->tag() != VariantTag::Array) return;
    *keepWaiting = true;
    for (const PlistVariant& item : message->array())
        if (item.tag() == VariantTag::String && strcasecmp(item.text().c_str(), "DLMessageDeviceReady") == 0)
            *keepWaiting = false;
    *result = 0;
}

void BackupIgnoreHandler(void*, const uint8_t*, uint32_t, bool* keepWaiting, uint8_t*) { *keepWaiting = false; }

void BackupMessageHandler(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    auto& session = *static_cast<BackupSession*>(context);
    *keepWaiting = true;
    *result = 1;
    PlistVariant frame;
    const PlistVariant* message = DecodeFrame(bytes, length, frame) ? backup::frameMessage(frame) : nullptr;
    if (!message || message->tag() != VariantTag::Array) {
        // Not a message at all: the conversation cannot go on.
        *keepWaiting = false;
        *result = 0;
        return;
    }
    const PlistVariant* name = message->At(0);
    if (!name || name->tag() != VariantTag::String) return;  // dropped: read the next
    const int32_t kind = backup::messageKind(name->text());
    if (kind == kBackupNone) return;
    session.kind = kind;
    *keepWaiting = false;
    backup::applyBackupMessage(session, *message);
}
