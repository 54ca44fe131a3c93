// The raw stream that follows DLMessageUploadFiles: per file the device's
// own name and the host's target path (each a u32be length and the bytes),
// frames of at most 32 KiB (u32be length counting the code byte, u8 code,
// payload: 0x0C data, 0x00 done, 0x0B error text), and a zero length after
// the last file. Frames are gathered into large writes, in one buffer that
// lives as long as the uploader.
#pragma once

#include "service.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zsim {

constexpr size_t kUploadBlock = 32 << 10;

class Uploader {
public:
    explicit Uploader(ServiceStream& stream);

    bool beginFile(const std::string& deviceName, const std::string& hostPath);
    // Room for one data frame of n <= kUploadBlock bytes, to be filled by
    // the caller before the next call; null when the connection failed.
    char* dataFrame(size_t n);
    bool endFile();
    bool failFile(const std::string& message);
    // The zero length that ends the stream, and everything still buffered.
    bool finish();
    // The device vanishes in the middle of the last data frame: only the
    // first `kept` bytes of its payload leave.
    void cutLastFrame(size_t kept);
    bool flush();

private:
    bool reserve(size_t n);
    void put32(uint32_t v);
    void put(const void* p, size_t n);

    ServiceStream& stream_;
    std::vector<char> buffer_;
    size_t used_ = 0;
    size_t lastPayload_ = 0;  // of the last data frame, for cutLastFrame
};

}  // namespace zsim
