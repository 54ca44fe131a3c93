#include "core/backup_sqlite.h"

namespace zsim {

MemoryDatabase::MemoryDatabase() {
    if (sqlite3_open_v2(":memory:", &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK) {
        sqlite3_close(db_);
        db_ = nullptr;
    }
}

MemoryDatabase::~MemoryDatabase() {
    if (db_) sqlite3_close(db_);
}

std::unique_ptr<MemoryDatabase> MemoryDatabase::open(const std::string& bytes) {
    auto db = std::make_unique<MemoryDatabase>();
    if (!db->ok() || bytes.size() < 100 || bytes.compare(0, 16, std::string("SQLite format 3\0", 16)) != 0)
        return nullptr;
    db->image_ = bytes;
    auto* data = reinterpret_cast<unsigned char*>(db->image_.data());
    if (sqlite3_deserialize(db->db_, "main", data, static_cast<sqlite3_int64>(db->image_.size()),
                            static_cast<sqlite3_int64>(db->image_.size()), SQLITE_DESERIALIZE_READONLY) != SQLITE_OK)
        return nullptr;
    // A damaged file only shows when it is read.
    if (!db->exec("SELECT count(*) FROM sqlite_master")) return nullptr;
    return db;
}

bool MemoryDatabase::exec(const std::string& sql) {
    return db_ && sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::string MemoryDatabase::bytes() {
    sqlite3_int64 size = 0;
    unsigned char* data = db_ ? sqlite3_serialize(db_, "main", &size, 0) : nullptr;
    if (!data) return std::string();
    std::string out(reinterpret_cast<char*>(data), static_cast<size_t>(size));
    sqlite3_free(data);
    return out;
}

Statement::Statement(MemoryDatabase& db, const char* sql) {
    if (db.handle() && sqlite3_prepare_v2(db.handle(), sql, -1, &stmt_, nullptr) != SQLITE_OK) stmt_ = nullptr;
}

Statement::~Statement() {
    if (stmt_) sqlite3_finalize(stmt_);
}

}  // namespace zsim
