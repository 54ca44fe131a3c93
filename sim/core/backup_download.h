// The host's answer to DLMessageDownloadFiles, in its raw form: per file a
// big-endian length and the path, then frames (u32be length counting the
// code byte, u8 code, payload): 0x0C data, 0x00 done, 0x06 or 0x0B the
// error text; a zero length where a path would start ends the stream.
#pragma once

#include "service.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zsim {

// Takes the files of one stream as they come, so that large ones need
// never be held whole. A false answer ends the stream at once: the device
// gives up reading (as when it vanishes).
class DownloadSink {
public:
    virtual ~DownloadSink() = default;
    virtual bool begin(const std::string& path) = 0;
    virtual bool data(const char* bytes, size_t n) = 0;
    // `ok`: the host sent the file to its end; else `error` is its text.
    virtual bool end(bool ok, const std::string& error) = 0;
};

// False when the stream breaks off, makes no sense or the sink gave up.
bool readDownloadStream(ServiceStream& stream, DownloadSink& sink);

struct DownloadedFile {
    std::string path;
    bool ok = false;
    uint64_t size = 0;
    std::string bytes;  // kept only up to the caller's limit
    std::string error;  // the host's text when it could not send the file
};

// Every file of the stream, each one's bytes kept up to `keepUpTo`.
bool readDownloadStream(ServiceStream& stream, uint64_t keepUpTo, std::vector<DownloadedFile>& files);

}  // namespace zsim
