// Wire vocabulary of the AFC file service: packet header, operation numbers
// and the status codes a host tells apart. Every integer on the wire is
// little-endian.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace zsim::afc {

inline constexpr char kMagic[8] = {'C', 'F', 'A', '6', 'L', 'P', 'A', 'A'};
inline constexpr size_t kHeaderSize = 40;

enum Op : uint64_t {
    kOpStatus = 0x01,
    kOpData = 0x02,
    kOpReadDir = 0x03,
    kOpTruncatePath = 0x07,
    kOpRemovePath = 0x08,
    kOpMakeDir = 0x09,
    kOpFileInfo = 0x0A,
    kOpDeviceInfo = 0x0B,
    kOpFileOpen = 0x0D,
    kOpFileOpenResult = 0x0E,
    kOpRead = 0x0F,
    kOpWrite = 0x10,
    kOpSeek = 0x11,
    kOpTell = 0x12,
    kOpTellResult = 0x13,
    kOpClose = 0x14,
    kOpSetSize = 0x15,
    kOpRenamePath = 0x18,
    kOpSetFsBlockSize = 0x19,
    kOpSetSocketBlockSize = 0x1A,
    kOpFileLock = 0x1B,
    kOpMakeLink = 0x1C,
    kOpSetFileTime = 0x1E,
    kOpRemovePathAndContents = 0x22,
};

enum Status : uint64_t {
    kSuccess = 0,
    kUnknownError = 1,  // the host reads this as "directory not empty" after a remove
    kNoResources = 3,
    kReadError = 4,
    kWriteError = 5,
    kInvalidArg = 7,
    kObjectNotFound = 8,
    kObjectIsDir = 9,
    kPermDenied = 10,
    kEndOfData = 14,
    kUnsupported = 15,
    kObjectExists = 16,
    kObjectBusy = 17,
    kNoSpaceLeft = 18,
    kWouldBlock = 19,
    kIoError = 20,
};

// Requests whose data names a path. A device reads their fixed data and
// payload as one run of request data, and a path as running to its NUL or
// to the end of that data.
inline bool carriesPath(uint64_t op) {
    switch (op) {
    case kOpReadDir: case kOpTruncatePath: case kOpRemovePath: case kOpMakeDir: case kOpFileInfo:
    case kOpFileOpen: case kOpRenamePath: case kOpMakeLink: case kOpSetFileTime: case kOpRemovePathAndContents:
        return true;
    default: return false;
    }
}

struct Header {
    uint64_t entireLength = 0;  // header + fixed data + payload
    uint64_t thisLength = 0;    // header + fixed data
    uint64_t packetNum = 0;
    uint64_t operation = 0;
};

inline uint64_t loadLE64(const unsigned char* p) {
    uint64_t v = 0;
    for (int i = 7; i >= 0; --i) v = (v << 8) | p[i];
    return v;
}

inline void storeLE64(unsigned char* p, uint64_t v) {
    for (int i = 0; i < 8; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}

// False when the bytes are not an AFC header a host could have sent.
inline bool decodeHeader(const unsigned char* p, Header& h) {
    if (std::memcmp(p, kMagic, sizeof kMagic) != 0) return false;
    h.entireLength = loadLE64(p + 8);
    h.thisLength = loadLE64(p + 16);
    h.packetNum = loadLE64(p + 24);
    h.operation = loadLE64(p + 32);
    return h.thisLength >= kHeaderSize && h.entireLength >= h.thisLength;
}

inline void encodeHeader(unsigned char* p, const Header& h) {
    std::memcpy(p, kMagic, sizeof kMagic);
    storeLE64(p + 8, h.entireLength);
    storeLE64(p + 16, h.thisLength);
    storeLE64(p + 24, h.packetNum);
    storeLE64(p + 32, h.operation);
}

// The device's own file system reports errno values; this is how they
// reach the host.
inline Status statusFromErrno(int err) {
    switch (err) {
    case 0: return kSuccess;
    case ENOENT: case ENOTDIR: return kObjectNotFound;
    case EISDIR: return kObjectIsDir;
    case EACCES: case EPERM: case EROFS: case ELOOP: return kPermDenied;
    case EEXIST: return kObjectExists;
    case ENOTEMPTY: return kUnknownError;
    case EBUSY: case ETXTBSY: return kObjectBusy;
    case ENOSPC: case EDQUOT: case EFBIG: return kNoSpaceLeft;
    case EINVAL: case EBADF: case ENAMETOOLONG: case EXDEV: return kInvalidArg;
    case EWOULDBLOCK: return kWouldBlock;
    default: return kIoError;
    }
}

}  // namespace zsim::afc
