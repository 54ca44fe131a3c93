#include "zeb_afc_piece_store.h"

#include "zeb_afc.h"

using zeb::api;

bool AfcPieceStore::fileSize(const std::string& path, int64_t& size) {
    AfcFileInfo info;
    if (!zeb::AfcGetFileInfo(afc(), path, info)) return false;
    size = info.size;
    return true;
}

FileStoreRef AfcPieceStore::openRead(const std::string& path) { return zeb::AfcOpenRead(afc(), path); }

FileStoreRef AfcPieceStore::openWrite(const std::string& path) {
    // Read-write without emptying: a resumed upload keeps the pieces its
    // temporary file already holds. (The plain write mode empties the file.)
    constexpr uint64_t kModeReadWriteKeep = 3;
    AFCFileRef file = 0;
    return api().AFCFileRefOpen(afc(), path.c_str(), kModeReadWriteKeep, &file) == 0 ? file : 0;
}

bool AfcPieceStore::setFileSize(FileStoreRef file, uint64_t size) {
    return api().AFCFileRefSetFileSize(afc(), file, size) == 0;
}

bool AfcPieceStore::seek(FileStoreRef file, int64_t offset) { return zeb::AfcSeek(afc(), file, offset, 0) == 0; }

uint32_t AfcPieceStore::read(FileStoreRef file, void* buffer, uint32_t length) {
    // AFC may hand back less than asked; a piece is read whole. A link that
    // fails in the middle of a read hands back what came before as if the
    // file ended there, and only the next read tells the two apart: a piece
    // cut short by a failure is no piece at all.
    uint32_t total = 0;
    auto* bytes = static_cast<unsigned char*>(buffer);
    while (total < length) {
        uint32_t got = length - total;
        if (api().AFCFileRefRead(afc(), file, bytes + total, &got) != 0) return 0;
        if (got == 0) break;
        total += got;
    }
    return total;
}

uint32_t AfcPieceStore::write(FileStoreRef file, const void* buffer, uint32_t length) {
    return zeb::AfcWrite(afc(), file, buffer, length);
}

void AfcPieceStore::close(FileStoreRef file) { zeb::AfcClose(afc(), file); }

bool AfcPieceStore::remove(const std::string& path) { return zeb::AfcRemoveFile(afc(), path); }

bool AfcPieceStore::rename(const std::string& from, const std::string& to) {
    return api().AFCRenamePath(afc(), from.c_str(), to.c_str()) == 0;
}
