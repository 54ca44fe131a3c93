#include "core/backup_download.h"

#include <algorithm>

namespace zsim {
namespace {

constexpr uint32_t kMaxPath = 4096;
constexpr uint8_t kCodeSuccess = 0x00;
constexpr uint8_t kCodeLocalError = 0x06;
constexpr uint8_t kCodeRemoteError = 0x0B;
constexpr uint8_t kCodeFileData = 0x0C;

bool readLength(ServiceStream& stream, uint32_t& length) {
    unsigned char b[4];
    if (!stream.readExact(b, 4)) return false;
    length = uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3];
    return true;
}

// Hands `n` payload bytes to the sink in pieces of the scratch buffer.
bool readPayload(ServiceStream& stream, uint64_t n, DownloadSink& sink, std::vector<char>& scratch) {
    while (n > 0) {
        const size_t piece = static_cast<size_t>(std::min<uint64_t>(n, scratch.size()));
        if (!stream.readExact(scratch.data(), piece) || !sink.data(scratch.data(), piece)) return false;
        n -= piece;
    }
    return true;
}

class KeepingSink : public DownloadSink {
public:
    KeepingSink(uint64_t keepUpTo, std::vector<DownloadedFile>& files) : keepUpTo_(keepUpTo), files_(files) {}

    bool begin(const std::string& path) override {
        file_ = DownloadedFile{};
        file_.path = path;
        return true;
    }
    bool data(const char* bytes, size_t n) override {
        if (file_.bytes.size() < keepUpTo_)
            file_.bytes.append(bytes, std::min<uint64_t>(n, keepUpTo_ - file_.bytes.size()));
        file_.size += n;
        return true;
    }
    bool end(bool ok, const std::string& error) override {
        file_.ok = ok;
        file_.error = error;
        files_.push_back(std::move(file_));
        return true;
    }

private:
    const uint64_t keepUpTo_;
    std::vector<DownloadedFile>& files_;
    DownloadedFile file_;
};

}  // namespace

bool readDownloadStream(ServiceStream& stream, DownloadSink& sink) {
    std::vector<char> scratch(64 << 10);
    for (;;) {
        uint32_t pathLength = 0;
        if (!readLength(stream, pathLength)) return false;
        if (pathLength == 0) return true;
        if (pathLength > kMaxPath) return false;
        std::string path(pathLength, '\0');
        if (!stream.readExact(path.data(), pathLength) || !sink.begin(path)) return false;
        for (bool done = false; !done;) {
            uint32_t length = 0;
            uint8_t code = 0;
            if (!readLength(stream, length) || length == 0 || !stream.readExact(&code, 1)) return false;
            const uint64_t payload = length - 1;
            switch (code) {
                case kCodeFileData:
                    if (!readPayload(stream, payload, sink, scratch)) return false;
                    break;
                case kCodeSuccess:
                    if (payload != 0 || !sink.end(true, "")) return false;
                    done = true;
                    break;
                case kCodeLocalError:
                case kCodeRemoteError: {
                    if (payload > kMaxPath) return false;
                    std::string error(payload, '\0');
                    if (!stream.readExact(error.data(), payload) || !sink.end(false, error)) return false;
                    done = true;
                    break;
                }
                default:
                    return false;
            }
        }
    }
}

bool readDownloadStream(ServiceStream& stream, uint64_t keepUpTo, std::vector<DownloadedFile>& files) {
    KeepingSink sink(keepUpTo, files);
    return readDownloadStream(stream, sink);
}

}  // namespace zsim
