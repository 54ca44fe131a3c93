// One host connection to the AFC file service: reads request packets,
// answers each with the request's packet number, keeps the connection's
// open files. One buffer per connection carries every answer (and the file
// bytes of reads and writes), so the data path allocates nothing.
#pragma once

#include "../service.h"
#include "afc_partition.h"
#include "afc_paths.h"
#include "afc_protocol.h"

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zsim::afc {

// Writes all n bytes, going on after interruptions; false with errno set.
bool writeFull(int fd, const unsigned char* p, size_t n);

class Session {
public:
    // `partition`: the media partition's accounting when it has a size
    // (null: nothing is counted or limited).
    Session(ServiceStream& stream, const ServiceContext& ctx, const std::string& root,
            MediaPartition* partition = nullptr);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Serves packets until the host closes, the peer breaks the protocol or
    // the device goes away.
    void run();

    // Reads up to kPiece are answered from the buffer in one write;
    // bigger ones stream through it in pieces of kPiece. Writes stream
    // through it in pieces of up to kChunk; reads of files without a size
    // (devices on the system tree) answer at most kChunk.
    static constexpr size_t kPiece = 256u << 10;
    static constexpr size_t kChunk = 8u << 20;
    static constexpr size_t kMaxFixedData = 64u << 10;
    static constexpr size_t kMaxOpenFiles = 1024;

private:
    struct OpenFile {
        int fd = -1;
    };

    bool readRequest();
    bool waitWhileStalled() const;
    bool dispatch();
    bool absorbPayload();
    bool drainPayload();
    unsigned char* answerSpace(size_t dataBytes);

    // Answers. False means the pipe broke.
    bool sendStatus(uint64_t status);
    bool sendU64(uint64_t op, uint64_t value);
    bool sendBuilt(size_t dataBytes);  // op kOpData with answerSpace()'s bytes

    // Fixed-data readers; false when the host's data is too short. A string
    // ends at its NUL or at the end of the data (then `next` is that end).
    bool fixedU64(size_t index, uint64_t& value) const;
    bool fixedString(size_t offset, std::string_view& out, size_t* next = nullptr) const;
    int fileFd(uint64_t handle) const;

    // Runs `op` and counts what it changed at and under `paths` in the
    // partition (afc_partition_ops.cpp).
    Status counted(std::initializer_list<const std::string*> paths, const std::function<Status()>& op);
    // Writes what fits in the partition; false with `error` set otherwise.
    bool writeCounted(int fd, const unsigned char* p, size_t n, int& error);
    // Sets a file's size, refusing growth beyond the free bytes.
    Status resizeCounted(const std::string* path, int fd, uint64_t size);

    // Path operations (afc_path_ops.cpp).
    bool opReadDir();
    bool opFileInfo();
    bool opDeviceInfo();
    bool opMakeDir();
    bool opRemovePath(bool withContents);
    bool opRenamePath();
    bool opMakeLink();
    bool opSetFileTime();
    bool opTruncatePath();

    // Open-file operations (afc_file_ops.cpp).
    bool opFileOpen();
    bool opRead();
    bool opWrite();
    bool opSeek();
    bool opTell();
    bool opSetSize();
    bool opClose();
    bool opLock();

    void appendString(size_t& used, std::string_view s);

    ServiceStream& stream_;
    const ServiceContext& ctx_;
    RootedPaths paths_;
    MediaPartition* partition_;
    Header request_;
    std::vector<unsigned char> fixed_;
    uint64_t payloadLeft_ = 0;  // bytes of the request's payload not read yet
    std::vector<unsigned char> buffer_;
    std::map<uint64_t, OpenFile> files_;
    uint64_t nextHandle_ = 1;
};

}  // namespace zsim::afc
