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

// Reads `n` payload bytes, keeping what fits under the file's limit.
bool readPayload(ServiceStream& stream, uint64_t n, DownloadedFile& file, uint64_t keepUpTo, std::vector<char>& scratch) {
    while (n > 0) {
        const size_t piece = static_cast<size_t>(std::min<uint64_t>(n, scratch.size()));
        if (!stream.readExact(scratch.data(), piece)) return false;
        if (file.bytes.size() < keepUpTo)
            file.bytes.append(scratch.data(), std::min<uint64_t>(piece, keepUpTo - file.bytes.size()));
        file.size += piece;
        n -= piece;
    }
    return true;
}

}  // namespace

bool readDownloadStream(ServiceStream& stream, uint64_t keepUpTo, std::vector<DownloadedFile>& files) {
    std::vector<char> scratch(64 << 10);
    for (;;) {
        uint32_t pathLength = 0;
        if (!readLength(stream, pathLength)) return false;
        if (pathLength == 0) return true;
        if (pathLength > kMaxPath) return false;
        DownloadedFile file;
        file.path.resize(pathLength);
        if (!stream.readExact(file.path.data(), pathLength)) return false;
        for (bool done = false; !done;) {
            uint32_t length = 0;
            uint8_t code = 0;
            if (!readLength(stream, length) || length == 0 || !stream.readExact(&code, 1)) return false;
            const uint64_t payload = length - 1;
            switch (code) {
                case kCodeFileData:
                    if (!readPayload(stream, payload, file, keepUpTo, scratch)) return false;
                    break;
                case kCodeSuccess:
                    if (payload != 0) return false;
                    file.ok = true;
                    done = true;
                    break;
                case kCodeLocalError:
                case kCodeRemoteError: {
                    if (payload > kMaxPath) return false;
                    file.error.resize(payload);
                    if (!stream.readExact(file.error.data(), payload)) return false;
                    done = true;
                    break;
                }
                default:
                    return false;
            }
        }
        files.push_back(std::move(file));
    }
}

}  // namespace zsim
