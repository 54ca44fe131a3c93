#include "core/backup_receive.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zsim {
namespace {

// A store is a plist the device parses whole; anything bigger is no store of its.
constexpr uint64_t kMaxStoreBytes = 256ull << 20;

bool writeAll(int fd, const char* p, size_t n) {
    while (n > 0) {
        const ssize_t w = ::write(fd, p, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        p += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

bool readAllAt(int fd, char* p, size_t n, uint64_t at) {
    while (n > 0) {
        const ssize_t r = ::pread(fd, p, n, static_cast<off_t>(at));
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) return false;
        p += r;
        n -= static_cast<size_t>(r);
        at += static_cast<uint64_t>(r);
    }
    return true;
}

}  // namespace

RestoreReceiver::RestoreReceiver(RestoreStaging& staging, std::optional<uint64_t> dropAt)
    : staging_(staging), dropAt_(dropAt) {}

RestoreReceiver::~RestoreReceiver() { closeFile(); }

void RestoreReceiver::closeFile() {
    if (fd_ >= 0) ::close(fd_);
    if (inPlaceFd_ >= 0) ::close(inPlaceFd_);
    fd_ = inPlaceFd_ = -1;
}

void RestoreReceiver::expect(const std::vector<const WantedFile*>& page) {
    page_.clear();
    for (const WantedFile* w : page) page_[w->hostPath] = w;
}

void RestoreReceiver::endPage() {
    // Whatever the host left out of its stream never came.
    missing_ += page_.size();
    page_.clear();
}

bool RestoreReceiver::startStaging(uint64_t prefix) {
    stagedPath_ = staging_.nextFile().string();
    if (stagedPath_.empty()) return true;  // no partition to restore into: only checked
    fd_ = ::open(stagedPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    bool ok = fd_ >= 0;
    for (uint64_t at = 0; ok && at < prefix;) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(prefix - at, compared_.size()));
        ok = readAllAt(inPlaceFd_, compared_.data(), n, at) && writeAll(fd_, compared_.data(), n);
        at += n;
    }
    if (inPlaceFd_ >= 0) ::close(inPlaceFd_);
    inPlaceFd_ = -1;
    return ok;
}

bool RestoreReceiver::sameAsInPlace(const char* bytes, size_t n) {
    if (compared_.size() < n) compared_.resize(n);
    return readAllAt(inPlaceFd_, compared_.data(), n, currentSize_) && memcmp(compared_.data(), bytes, n) == 0;
}

bool RestoreReceiver::begin(const std::string& path) {
    auto it = page_.find(path);
    current_ = it == page_.end() ? nullptr : it->second;
    if (current_) page_.erase(it);
    currentSize_ = 0;
    currentFailed_ = false;
    storeBytes_.clear();
    stagedPath_.clear();
    if (current_ && current_->mediaPath) {
        // A file of the same size already in place is compared first.
        const auto inPlace = staging_.inPlace(*current_->mediaPath);
        struct stat st {};
        if (!inPlace.empty() && current_->size && ::stat(inPlace.c_str(), &st) == 0 &&
            static_cast<uint64_t>(st.st_size) == *current_->size)
            inPlaceFd_ = ::open(inPlace.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        if (compared_.empty()) compared_.resize(64 << 10);
        // A file the device cannot keep did not arrive.
        if (inPlaceFd_ < 0) currentFailed_ = !startStaging(0);
    }
    return true;
}

bool RestoreReceiver::data(const char* bytes, size_t n) {
    received_ += n;
    if (inPlaceFd_ >= 0 && !sameAsInPlace(bytes, n) && !startStaging(currentSize_)) currentFailed_ = true;
    if (fd_ >= 0 && !currentFailed_ && !writeAll(fd_, bytes, n)) currentFailed_ = true;
    currentSize_ += n;
    if (current_ && current_->store) {
        if (storeBytes_.size() + n > kMaxStoreBytes) currentFailed_ = true;
        if (!currentFailed_) storeBytes_.append(bytes, n);
    }
    return !(dropAt_ && received_ >= *dropAt_);
}

bool RestoreReceiver::end(bool ok, const std::string&) {
    closeFile();
    if (!current_) return true;  // not asked for: dropped
    const bool whole = ok && !currentFailed_ && (!current_->size || currentSize_ == *current_->size);
    if (!whole) {
        ++missing_;
        if (!stagedPath_.empty()) ::unlink(stagedPath_.c_str());
        return true;
    }
    // Without a staged copy the file is already in place as it came.
    if (current_->mediaPath && !stagedPath_.empty())
        staging_.media.push_back({stagedPath_, *current_->mediaPath});
    if (current_->store) staging_.stores.emplace_back(current_->store, std::move(storeBytes_));
    current_ = nullptr;
    return true;
}

}  // namespace zsim
