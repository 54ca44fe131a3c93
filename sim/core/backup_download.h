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

struct DownloadedFile {
    std::string path;
    bool ok = false;
    uint64_t size = 0;
    std::string bytes;  // kept only up to the caller's limit
    std::string error;  // the host's text when it could not send the file
};

// False when the stream breaks off or makes no sense.
bool readDownloadStream(ServiceStream& stream, uint64_t keepUpTo, std::vector<DownloadedFile>& files);

}  // namespace zsim
