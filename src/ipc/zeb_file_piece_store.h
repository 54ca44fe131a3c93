// The file operations that file pieces need from the device. The worker
// backs it with an AFC connection; keeping the pieces behind this small
// interface keeps the transport layer free of the device layer.
#pragma once

#include <cstdint>
#include <string>

using FileStoreRef = uint64_t;  // an open file; 0 means none

class FilePieceStore {
public:
    virtual ~FilePieceStore() = default;
    // False when the path does not exist.
    virtual bool fileSize(const std::string& path, int64_t& size) = 0;
    virtual FileStoreRef openRead(const std::string& path) = 0;   // mode 1
    virtual FileStoreRef openWrite(const std::string& path) = 0;  // mode 2: read-write, made if missing, kept
    virtual bool setFileSize(FileStoreRef file, uint64_t size) = 0;
    virtual bool seek(FileStoreRef file, int64_t offset) = 0;  // from the start
    // Bytes read or written; 0 on failure.
    virtual uint32_t read(FileStoreRef file, void* buffer, uint32_t length) = 0;
    virtual uint32_t write(FileStoreRef file, const void* buffer, uint32_t length) = 0;
    virtual void close(FileStoreRef file) = 0;
    virtual bool remove(const std::string& path) = 0;
    virtual bool rename(const std::string& from, const std::string& to) = 0;
};
