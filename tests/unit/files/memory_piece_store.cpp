#include "memory_piece_store.h"

#include <algorithm>
#include <cstring>

bool MemoryPieceStore::fileSize(const std::string& path, int64_t& size) {
    auto found = files.find(path);
    if (found == files.end()) return false;
    size = static_cast<int64_t>(found->second.size());
    return true;
}

FileStoreRef MemoryPieceStore::openRead(const std::string& path) {
    if (failOpen.count(path) || !files.count(path)) return 0;
    open[next] = {path, 0};
    return next++;
}

FileStoreRef MemoryPieceStore::openWrite(const std::string& path) {
    if (failOpen.count(path)) return 0;
    files[path];  // made if missing, kept if there
    open[next] = {path, 0};
    return next++;
}

bool MemoryPieceStore::setFileSize(FileStoreRef file, uint64_t size) {
    auto found = open.find(file);
    if (found == open.end()) return false;
    files[found->second.path].resize(size);
    return true;
}

bool MemoryPieceStore::seek(FileStoreRef file, int64_t offset) {
    auto found = open.find(file);
    if (found == open.end() || offset < 0) return false;
    found->second.position = offset;
    return true;
}

uint32_t MemoryPieceStore::read(FileStoreRef file, void* buffer, uint32_t length) {
    auto found = open.find(file);
    if (found == open.end()) return 0;
    const std::string& bytes = files[found->second.path];
    int64_t position = found->second.position;
    if (position >= static_cast<int64_t>(bytes.size())) return 0;
    uint32_t count = static_cast<uint32_t>(std::min<uint64_t>(length, bytes.size() - position));
    memcpy(buffer, bytes.data() + position, count);
    found->second.position += count;
    bytesRead += count;
    return count;
}

uint32_t MemoryPieceStore::write(FileStoreRef file, const void* buffer, uint32_t length) {
    auto found = open.find(file);
    if (found == open.end()) return 0;
    uint32_t count = static_cast<uint32_t>(std::min<size_t>(length, writeLimit));
    std::string& bytes = files[found->second.path];
    size_t position = static_cast<size_t>(found->second.position);
    if (bytes.size() < position + count) bytes.resize(position + count);
    memcpy(bytes.data() + position, buffer, count);
    found->second.position += count;
    return count;
}

void MemoryPieceStore::close(FileStoreRef file) { open.erase(file); }

bool MemoryPieceStore::remove(const std::string& path) { return files.erase(path) > 0; }

bool MemoryPieceStore::rename(const std::string& from, const std::string& to) {
    auto found = files.find(from);
    if (found == files.end()) return false;
    files[to] = std::move(found->second);
    files.erase(from);
    return true;
}
