#include "zeb_restore_download.h"

#include "zeb_afc.h"
#include "zeb_backup_conversation.h"
#include "zeb_backup_templates.h"
#include "zeb_local_file.h"

#include <fcntl.h>
#include <glog/logging.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace backup {

namespace {

constexpr uint32_t kPiece = 32768;
constexpr size_t kBlockHead = 5;
constexpr uint8_t kCodeData = 12;
constexpr uint8_t kCodeError = 6;
// Pieces gathered into one send: the device reads a stream, so fewer,
// larger writes cost the link less than one per piece.
constexpr size_t kPiecesPerSend = kTransferBufferSize / (kPiece + kBlockHead);

bool sendAll(AMDServiceConnectionRef connection, const void* bytes, size_t length) {
    const auto* at = static_cast<const uint8_t*>(bytes);
    while (length > 0) {
        const ssize_t sent = zeb::api().AMDServiceConnectionSend(connection, at, length);
        if (sent <= 0) return false;
        at += sent;
        length -= static_cast<size_t>(sent);
    }
    return true;
}

void putLength(uint8_t* at, uint32_t value) {
    at[0] = static_cast<uint8_t>(value >> 24);
    at[1] = static_cast<uint8_t>(value >> 16);
    at[2] = static_cast<uint8_t>(value >> 8);
    at[3] = static_cast<uint8_t>(value);
}

// A host path made of what the device asked for may not leave the folder.
bool staysInside(const std::string& localPath) {
    const std::filesystem::path relative(localPath);
    if (localPath.empty() || relative.is_absolute()) return false;
    for (const auto& part : relative)
        if (part == "..") return false;
    return true;
}

int sendErrorBlock(AMDServiceConnectionRef connection, int error) {
    const char* text = strerror(error);
    const uint32_t length = static_cast<uint32_t>(strlen(text));
    uint8_t head[kBlockHead];
    putLength(head, length + 1);
    head[4] = kCodeError;
    if (!sendAll(connection, head, sizeof head) || !sendAll(connection, text, length))
        LOG(WARNING) << "could not send message  " << text;
    return -1;
}

// Streams the open file. False when the link failed; `readError` is the
// errno of a read that failed (the pieces before it are sent).
bool sendData(AMDServiceConnectionRef connection, int fd, uint64_t size, const std::string& path, int& readError) {
    readError = 0;
    uint8_t* buffer = zeb::threadTransferBuffer();
    uint64_t left = size;
    while (left > 0) {
        size_t used = 0;
        for (size_t piece = 0; piece < kPiecesPerSend && left > 0; ++piece) {
            const uint32_t want = left < kPiece ? static_cast<uint32_t>(left) : kPiece;
            ssize_t got;
            do got = ::read(fd, buffer + used + kBlockHead, want);
            while (got < 0 && errno == EINTR);
            if (got <= 0) {
                LOG(WARNING) << "read error " << path;
                readError = got == 0 ? EIO : errno;  // EIO: the file shrank under us
                return used == 0 || sendAll(connection, buffer, used);
            }
            putLength(buffer + used, static_cast<uint32_t>(got) + 1);
            buffer[used + 4] = kCodeData;
            used += kBlockHead + static_cast<size_t>(got);
            left -= static_cast<uint64_t>(got);
        }
        if (!sendAll(connection, buffer, used)) {
            LOG(WARNING) << "Error: sent only  of " << used << " bytes";
            return false;
        }
    }
    return true;
}

}  // namespace

int sendDownloadFile(AMDServiceConnectionRef connection, const std::string& base, const DownloadRecord& record) {
    uint8_t head[4];
    putLength(head, static_cast<uint32_t>(record.device_path.size()));
    if (!sendAll(connection, head, sizeof head) ||
        !sendAll(connection, record.device_path.data(), record.device_path.size()))
        return -1;
    if (!staysInside(record.local_path)) return sendErrorBlock(connection, EACCES);

    const std::string path = base + record.local_path;
    // Only a regular file goes out: a FIFO would hold the open for good and a
    // device would stream without end.
    const int fd = zeb::openRegularFile(path);
    struct stat info {};
    int failure = 0;
    if (fd < 0 || ::fstat(fd, &info) != 0) failure = errno;
    if (failure != 0) {
        if (failure != ENOENT) LOG(WARNING) << "stat failed on '" << path << "': " << failure;
        if (fd >= 0) ::close(fd);
        return sendErrorBlock(connection, failure);
    }
    posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    int error = 0;
    const bool linkUp = sendData(connection, fd, static_cast<uint64_t>(info.st_size), path, error);
    ::close(fd);
    if (!linkUp) return -1;
    if (error != 0) return sendErrorBlock(connection, error);
    static const uint8_t kEnd[kBlockHead] = {0, 0, 0, 1, 0};
    return sendAll(connection, kEnd, sizeof kEnd) ? 0 : -1;
}

void answerDownloads(BackupSession& session, const std::string& base) {
    for (const DownloadRecord& record : session.downloads)
        if (sendDownloadFile(session.connection, base, record) < 0) break;
    session.downloads.clear();
    static const uint8_t kBatchEnd[4] = {0, 0, 0, 0};
    sendAll(session.connection, kBatchEnd, sizeof kBatchEnd);
    sendTemplate(session.connection, kStatusOkDictC);
}

}  // namespace backup
