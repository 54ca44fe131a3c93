// A device's files held in memory, for the piece logic alone.
#pragma once

#include "zeb_file_piece_store.h"

#include <map>
#include <set>
#include <string>

class MemoryPieceStore : public FilePieceStore {
public:
    std::map<std::string, std::string> files;
    std::set<std::string> failOpen;  // paths whose opening fails
    size_t writeLimit = SIZE_MAX;    // each write stores at most this much
    uint64_t bytesRead = 0;          // what reads handed out, all files together

    bool fileSize(const std::string& path, int64_t& size) override;
    FileStoreRef openRead(const std::string& path) override;
    FileStoreRef openWrite(const std::string& path) override;
    bool setFileSize(FileStoreRef file, uint64_t size) override;
    bool seek(FileStoreRef file, int64_t offset) override;
    uint32_t read(FileStoreRef file, void* buffer, uint32_t length) override;
    uint32_t write(FileStoreRef file, const void* buffer, uint32_t length) override;
    void close(FileStoreRef file) override;
    bool remove(const std::string& path) override;
    bool rename(const std::string& from, const std::string& to) override;

    int openCount() const { return static_cast<int>(open.size()); }

private:
    struct Open {
        std::string path;
        int64_t position = 0;
    };
    std::map<FileStoreRef, Open> open;
    FileStoreRef next = 1;
};
