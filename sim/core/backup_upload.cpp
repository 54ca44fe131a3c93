#include "core/backup_upload.h"

#include <cstring>

namespace zsim {
namespace {

// Frames are written once about this much has gathered.
constexpr size_t kWriteSize = 256 << 10;
constexpr uint8_t kCodeSuccess = 0x00;
constexpr uint8_t kCodeRemoteError = 0x0B;
constexpr uint8_t kCodeFileData = 0x0C;

}  // namespace

Uploader::Uploader(ServiceStream& stream) : stream_(stream), buffer_(kWriteSize + kUploadBlock + 16) {}

bool Uploader::flush() {
    const bool ok = used_ == 0 || stream_.writeAll(buffer_.data(), used_);
    used_ = 0;
    return ok;
}

bool Uploader::reserve(size_t n) {
    if (used_ + n <= buffer_.size()) return true;
    if (!flush()) return false;
    if (n > buffer_.size()) buffer_.resize(n);
    return true;
}

void Uploader::put32(uint32_t v) {
    const unsigned char b[4] = {static_cast<unsigned char>(v >> 24), static_cast<unsigned char>(v >> 16),
                                static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
    put(b, 4);
}

void Uploader::put(const void* p, size_t n) {
    memcpy(buffer_.data() + used_, p, n);
    used_ += n;
}

bool Uploader::beginFile(const std::string& deviceName, const std::string& hostPath) {
    if (!reserve(8 + deviceName.size() + hostPath.size())) return false;
    put32(static_cast<uint32_t>(deviceName.size()));
    put(deviceName.data(), deviceName.size());
    put32(static_cast<uint32_t>(hostPath.size()));
    put(hostPath.data(), hostPath.size());
    return true;
}

char* Uploader::dataFrame(size_t n) {
    if (!reserve(5 + n)) return nullptr;
    put32(static_cast<uint32_t>(n + 1));
    buffer_[used_++] = static_cast<char>(kCodeFileData);
    char* payload = buffer_.data() + used_;
    used_ += n;
    lastPayload_ = n;
    return payload;
}

bool Uploader::endFile() {
    if (!reserve(5)) return false;
    put32(1);
    buffer_[used_++] = static_cast<char>(kCodeSuccess);
    return true;
}

bool Uploader::failFile(const std::string& message) {
    if (!reserve(5 + message.size())) return false;
    put32(static_cast<uint32_t>(message.size() + 1));
    buffer_[used_++] = static_cast<char>(kCodeRemoteError);
    put(message.data(), message.size());
    return true;
}

bool Uploader::finish() {
    if (!reserve(4)) return false;
    put32(0);
    return flush();
}

void Uploader::cutLastFrame(size_t kept) {
    if (kept < lastPayload_) used_ -= lastPayload_ - kept;
    flush();
}

}  // namespace zsim
