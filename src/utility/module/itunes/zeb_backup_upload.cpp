#include "zeb_backup_upload.h"

#include "zeb_local_file.h"

#include <glog/logging.h>

#include <cstdio>
#include <memory>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr uint32_t kLongestName = 4096;
constexpr size_t kPiece = 32768;
constexpr uint8_t kBlockData = 12;
constexpr uint8_t kBlockErrorText = 11;

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

class UploadStream {
public:
    explicit UploadStream(BackupSession& session) : session_(session) {}

    bool deviceGone() const { return session_.device && session_.device->state == kDeviceDisconnected; }

    // Exactly n bytes; false when the device went or the link ended.
    bool read(void* buffer, size_t n) {
        auto* bytes = static_cast<uint8_t*>(buffer);
        while (n > 0) {
            if (deviceGone()) return false;
            ssize_t got = zeb::api().AMDServiceConnectionReceive(session_.connection, bytes, n);
            if (got <= 0) return false;
            bytes += got;
            n -= static_cast<size_t>(got);
        }
        return true;
    }

    bool readLength(uint32_t& length) {
        uint8_t raw[4];
        if (!read(raw, sizeof raw)) return false;
        length = (uint32_t{raw[0]} << 24) | (uint32_t{raw[1]} << 16) | (uint32_t{raw[2]} << 8) | raw[3];
        return true;
    }

    // A length-prefixed text; an empty or overlong one ends the upload.
    bool readText(std::string& text) {
        uint32_t length = 0;
        if (!readLength(length) || length == 0 || length > kLongestName) return false;
        text.resize(length);
        return read(text.data(), length);
    }

    // n bytes into `file` (or nowhere), through one buffer of 32 KiB.
    bool copy(uint64_t n, FILE* file) {
        while (n > 0) {
            const size_t piece = n < kPiece ? static_cast<size_t>(n) : kPiece;
            if (!read(buffer_, piece)) return false;
            if (file) fwrite(buffer_, 1, piece, file);
            n -= piece;
        }
        return true;
    }

private:
    BackupSession& session_;
    uint8_t buffer_[kPiece];
};

FilePtr openTarget(const fs::path& target) {
    if (target.empty()) return nullptr;
    // A link planted in the backup folder is neither followed nor written through.
    if (!zeb::makeLocalFolder(target.parent_path())) return nullptr;
    FilePtr file(zeb::overwriteLocalFile(target));
    if (file) setvbuf(file.get(), nullptr, _IOFBF, 1 << 20);
    return file;
}

bool holdsNeedle(const fs::path& target, const std::vector<std::string>& needles) {
    const std::string text = target.string();
    for (const auto& needle : needles)
        if (!needle.empty() && text.find(needle) != std::string::npos) return true;
    return false;
}

// The upload loop shared by both readers. `keep` decides per host path
// whether the file is written; `onWritten` hears of each file written.
template <typename Keep, typename OnWritten>
int32_t receiveFiles(BackupSession& session, Keep keep, OnWritten onWritten) {
    auto stream = std::make_unique<UploadStream>(session);  // its 32 KiB buffer stays off the stack
    std::string name, path;
    for (;;) {
        // An empty name ends the upload; so does a link that ended here, which
        // the answer to the upload then finds out.
        if (!stream->readText(name) || !stream->readText(path))
            return stream->deviceGone() ? kCodeDeviceDisconnected : 0;
        uint32_t blockLength = 0;
        if (!stream->readLength(blockLength)) return stream->deviceGone() ? kCodeDeviceDisconnected : 0;
        if (blockLength == 0) return 0;
        uint8_t code = 0;
        if (!stream->read(&code, 1)) return kCodeDeviceDisconnected;

        const fs::path target = backup::placeDevicePath(session, path);
        if (target.empty() && !path.empty()) LOG(WARNING) << __FILE__ << " refused the device path " << path;
        FilePtr file = target.empty() || !keep(target) ? nullptr : openTarget(target);
        bool hadData = false;
        while (code == kBlockData) {
            if (!stream->copy(blockLength - 1, file.get())) {
                // The stream broke inside the file: what arrived is no file.
                file.reset();
                std::error_code ignored;
                if (!target.empty()) fs::remove(target, ignored);
                return kCodeDeviceDisconnected;
            }
            hadData = true;
            if (!stream->readLength(blockLength) || blockLength == 0) break;
            if (!stream->read(&code, 1)) return kCodeDeviceDisconnected;
        }
        const bool written = file != nullptr;
        file.reset();
        if (written) onWritten(target);
        if (blockLength == 0) return 0;
        if (code == kBlockErrorText) {
            // The device's text is shown up to a sensible length; the
            // rest of the block is read through, whatever length it claims.
            const uint32_t shown = blockLength - 1 < kLongestName ? blockLength - 1 : kLongestName;
            std::string text(shown, '\0');
            if (!stream->read(text.data(), text.size()) || !stream->copy(blockLength - 1 - shown, nullptr))
                return kCodeDeviceDisconnected;
            if (!hadData) printf("\nReceived an error message from device: %s\n", text.c_str());
        } else if (blockLength > 1) {
            // Codes beyond these end the file like 0; their bytes are read
            // through so that the next name starts where it should.
            if (code != 0) LOG(WARNING) << __FILE__ << " unknown upload block code " << int{code};
            if (!stream->copy(blockLength - 1, nullptr)) return kCodeDeviceDisconnected;
        }
        if (stream->deviceGone()) return kCodeDeviceDisconnected;
    }
}

}  // namespace

namespace backup {

int32_t receiveUploadedFiles(BackupSession& session) {
    return receiveFiles(session, [](const fs::path&) { return true; }, [](const fs::path&) {});
}

std::pair<int32_t, bool> receiveSelectedFiles(BackupSession& session, const std::vector<std::string>& needles,
                                              std::string* written) {
    if (session.device && session.device->state == kDeviceDisconnected) return {kCodeDeviceDisconnected, false};
    bool found = false;
    const int32_t code = receiveFiles(
        session, [&](const fs::path& target) { return holdsNeedle(target, needles); },
        [&](const fs::path& target) {
            found = true;
            if (written) *written = target.string();
        });
    return {code, found};
}

}  // namespace backup
