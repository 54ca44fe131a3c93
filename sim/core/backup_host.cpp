#include "core/backup_host.h"

#include "core/app_service_frames.h"
#include "core/sync_messages.h"

namespace zsim {
namespace {

const char* const kEmptyParameter = "___EmptyParameterString___";

plist_t stringArray(const std::vector<std::string>& items) {
    plist_t a = plist_new_array();
    for (const auto& item : items) plist_array_append_item(a, plist_new_string(item.c_str()));
    return a;
}

}  // namespace

BackupHost::BackupHost(ServiceStream& stream, const ServiceContext& ctx) : stream_(stream), ctx_(ctx) {}

bool BackupHost::waitIfStalled() { return waitWhileStalled(ctx_); }

bool BackupHost::send(std::initializer_list<plist_t> elements) {
    const std::string frame = encodeSyncFrame(elements);
    return waitIfStalled() && sendSyncFrame(stream_, frame);
}

PlistPtr BackupHost::receive() {
    if (deviceClosing(ctx_)) return nullptr;
    PlistPtr message = readSyncMessage(stream_, scratch_);
    if (!message || !waitIfStalled()) return nullptr;
    return message;
}

std::optional<HostStatus> BackupHost::status() {
    PlistPtr message = receive();
    if (!message || messageString(message.get(), 0) != "DLMessageStatusResponse") return std::nullopt;
    HostStatus status;
    plist_t code = messageItem(message.get(), 1);
    if (!code || plist_get_node_type(code) != PLIST_UINT) return std::nullopt;
    uint64_t raw = 0;
    plist_get_uint_val(code, &raw);
    status.code = static_cast<int64_t>(raw);
    status.text = messageString(message.get(), 2);
    if (plist_t value = messageItem(message.get(), 3)) status.value = adopt(plist_copy(value));
    return status;
}

bool BackupHost::askForFiles(const std::vector<std::string>& paths, double progress) {
    return send({plist_new_string("DLMessageDownloadFiles"), stringArray(paths), plist_new_dict(),
                 plist_new_real(progress), plist_new_uint(0)});
}

bool BackupHost::download(const std::vector<std::string>& paths, double progress, DownloadSink& sink) {
    return askForFiles(paths, progress) && readDownloadStream(stream_, sink) && status();
}

std::optional<std::vector<DownloadedFile>> BackupHost::download(const std::vector<std::string>& paths,
                                                                double progress, uint64_t keepUpTo) {
    std::vector<DownloadedFile> files;
    if (!askForFiles(paths, progress) || !readDownloadStream(stream_, keepUpTo, files) || !status())
        return std::nullopt;
    return files;
}

std::optional<HostStatus> BackupHost::createDirectory(const std::string& path, double progress) {
    if (!send({plist_new_string("DLMessageCreateDirectory"), plist_new_string(path.c_str()), plist_new_dict(),
               plist_new_real(progress)}))
        return std::nullopt;
    return status();
}

std::optional<HostStatus> BackupHost::moveItems(const std::vector<std::pair<std::string, std::string>>& moves,
                                                double progress) {
    plist_t table = plist_new_dict();
    for (const auto& [from, to] : moves) plist_dict_set_item(table, from.c_str(), plist_new_string(to.c_str()));
    if (!send({plist_new_string("DLMessageMoveItems"), table, plist_new_dict(), plist_new_real(progress)}))
        return std::nullopt;
    return status();
}

std::optional<HostStatus> BackupHost::removeItems(const std::vector<std::string>& paths, double progress) {
    if (!send({plist_new_string("DLMessageRemoveItems"), stringArray(paths), plist_new_dict(),
               plist_new_real(progress)}))
        return std::nullopt;
    return status();
}

std::optional<std::optional<uint64_t>> BackupHost::freeDiskSpace() {
    if (!send({plist_new_string("DLMessageGetFreeDiskSpace"), plist_new_string(kEmptyParameter)})) return std::nullopt;
    auto answer = status();
    if (!answer) return std::nullopt;
    std::optional<uint64_t> bytes;
    if (answer->code == 0 && answer->value && plist_get_node_type(answer->value.get()) == PLIST_UINT) {
        uint64_t v = 0;
        plist_get_uint_val(answer->value.get(), &v);
        bytes = v;
    }
    return bytes;
}

bool BackupHost::respond(uint64_t errorCode, const std::string& description, const std::string& content) {
    plist_t response = plist_new_dict();
    plist_dict_set_item(response, "MessageName", plist_new_string("Response"));
    plist_dict_set_item(response, "ErrorCode", plist_new_uint(errorCode));
    if (!description.empty()) plist_dict_set_item(response, "ErrorDescription", plist_new_string(description.c_str()));
    if (!content.empty()) plist_dict_set_item(response, "Content", plist_new_string(content.c_str()));
    return send({plist_new_string("DLMessageProcessMessage"), response});
}

bool BackupHost::disconnect() {
    return send({plist_new_string("DLMessageDisconnect"), plist_new_string(kEmptyParameter)});
}

void BackupHost::awaitHostLeaving() {
    while (PlistPtr message = receive()) {
        if (messageString(message.get(), 0) == "DLMessageDisconnect") return;
    }
}

}  // namespace zsim
