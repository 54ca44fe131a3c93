// SQLite databases built and read entirely in memory: the device hands the
// host database files as bytes and reads the ones the host sends back.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

namespace zsim {

class MemoryDatabase {
public:
    MemoryDatabase();  // empty
    ~MemoryDatabase();
    MemoryDatabase(const MemoryDatabase&) = delete;
    MemoryDatabase& operator=(const MemoryDatabase&) = delete;

    // A read-only view of database file bytes; null when they are no database.
    static std::unique_ptr<MemoryDatabase> open(const std::string& bytes);

    bool ok() const { return db_ != nullptr; }
    sqlite3* handle() { return db_; }
    bool exec(const std::string& sql);
    // The database as a file.
    std::string bytes();

private:
    sqlite3* db_ = nullptr;
    std::string image_;  // backs a database opened from bytes
};

// A prepared statement freed with its scope.
class Statement {
public:
    Statement(MemoryDatabase& db, const char* sql);
    ~Statement();
    sqlite3_stmt* get() { return stmt_; }
    bool ok() const { return stmt_ != nullptr; }

private:
    sqlite3_stmt* stmt_ = nullptr;
};

}  // namespace zsim
