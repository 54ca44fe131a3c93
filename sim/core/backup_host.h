// The host as the backup service reaches it: DeviceLink messages the device
// sends (binary plists, a 4-byte big-endian length first) and the
// DLMessageStatusResponse each of them gets back. Only messages every host
// answers are offered here; DLMessageRemoveFiles and DLMessageCopyItem are
// left out on purpose, since some hosts never answer them.
#pragma once

#include "core/backup_download.h"
#include "core/plist_util.h"
#include "service.h"

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zsim {

struct HostStatus {
    int64_t code = 0;  // 0 ok; hosts write negative codes as 64-bit two's complement
    std::string text;
    PlistPtr value;
};

class BackupHost {
public:
    BackupHost(ServiceStream& stream, const ServiceContext& ctx);

    ServiceStream& stream() { return stream_; }
    const ServiceContext& context() const { return ctx_; }

    // Every call below returns false / nullopt once the connection is gone
    // or the device is closing; the conversation then ends.
    bool send(std::initializer_list<plist_t> elements);  // takes the elements
    PlistPtr receive();                                  // the host's next DL message
    std::optional<HostStatus> status();
    // Waits while the control channel stalls the device.
    bool waitIfStalled();

    // DLMessageDownloadFiles: each file's bytes are kept up to `keepUpTo`.
    std::optional<std::vector<DownloadedFile>> download(const std::vector<std::string>& paths, double progress,
                                                        uint64_t keepUpTo);
    // The same, each file handed to `sink` as it comes; false once the
    // conversation is over (the connection gone or the sink gave up).
    bool download(const std::vector<std::string>& paths, double progress, DownloadSink& sink);
    std::optional<HostStatus> createDirectory(const std::string& path, double progress);
    std::optional<HostStatus> moveItems(const std::vector<std::pair<std::string, std::string>>& moves,
                                        double progress);
    std::optional<HostStatus> removeItems(const std::vector<std::string>& paths, double progress);
    // The bytes free where the host keeps backups; nullopt inside when the
    // host could not tell.
    std::optional<std::optional<uint64_t>> freeDiskSpace();

    // The operation's end: {MessageName: Response, ErrorCode, ...}.
    bool respond(uint64_t errorCode, const std::string& description = "", const std::string& content = "");
    bool disconnect();
    // Reads until the host says goodbye or closes, so that it never writes
    // into a closed connection.
    void awaitHostLeaving();

private:
    bool askForFiles(const std::vector<std::string>& paths, double progress);

    ServiceStream& stream_;
    const ServiceContext& ctx_;
    std::vector<char> scratch_;
};

}  // namespace zsim
