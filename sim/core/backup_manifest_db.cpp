#include "core/backup_manifest_db.h"

#include "core/backup_file_record.h"
#include "core/backup_sqlite.h"

namespace zsim {
namespace {

const char* const kSchema = R"SQL(
CREATE TABLE Files (fileID TEXT PRIMARY KEY, domain TEXT, relativePath TEXT, flags INTEGER, file BLOB);
CREATE INDEX FilesDomainIdx ON Files(domain);
CREATE INDEX FilesRelativePathIdx ON Files(relativePath);
CREATE INDEX FilesFlagsIdx ON Files(flags);
CREATE TABLE Properties (key TEXT PRIMARY KEY, value BLOB);
)SQL";

std::string column(sqlite3_stmt* s, int i) {
    const unsigned char* text = sqlite3_column_text(s, i);
    return text ? reinterpret_cast<const char*>(text) : "";
}

}  // namespace

std::string buildManifestDatabase(const BackupContent& content) {
    MemoryDatabase db;
    if (!db.exec(kSchema) || !db.exec("BEGIN")) return std::string();
    Statement insert(db, "INSERT INTO Files VALUES (?, ?, ?, ?, ?)");
    if (!insert.ok()) return std::string();
    uint64_t inode = 100000;
    for (const BackupItem& item : content.items) {
        const std::string record = archiveFileRecord(item, ++inode);
        sqlite3_stmt* s = insert.get();
        sqlite3_reset(s);
        sqlite3_bind_text(s, 1, item.fileID.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_text(s, 2, item.domain.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_text(s, 3, item.relativePath.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_int(s, 4, item.directory ? kManifestFolder : kManifestFile);
        sqlite3_bind_blob(s, 5, record.data(), static_cast<int>(record.size()), SQLITE_TRANSIENT);
        if (sqlite3_step(s) != SQLITE_DONE) return std::string();
    }
    if (!db.exec("COMMIT")) return std::string();
    return db.bytes();
}

std::optional<std::vector<ManifestRecord>> readManifestDatabase(const std::string& bytes) {
    auto db = MemoryDatabase::open(bytes);
    if (!db) return std::nullopt;
    Statement query(*db, "SELECT fileID, domain, relativePath, flags, file FROM Files ORDER BY domain, relativePath");
    if (!query.ok()) return std::nullopt;
    std::vector<ManifestRecord> records;
    for (int rc; (rc = sqlite3_step(query.get())) != SQLITE_DONE;) {
        if (rc != SQLITE_ROW) return std::nullopt;
        sqlite3_stmt* s = query.get();
        ManifestRecord r;
        r.fileID = column(s, 0);
        r.domain = column(s, 1);
        r.relativePath = column(s, 2);
        r.flags = sqlite3_column_int(s, 3);
        if (const void* blob = sqlite3_column_blob(s, 4))
            r.size = archivedFileSize(blob, static_cast<size_t>(sqlite3_column_bytes(s, 4)));
        records.push_back(std::move(r));
    }
    return records;
}

}  // namespace zsim
