#include "core/backup_sms_db.h"

#include "core/backup_sqlite.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace zsim {
namespace {

const char* const kSchema = R"SQL(
CREATE TABLE _SqliteDatabaseProperties (key TEXT, value TEXT, UNIQUE(key));
CREATE TABLE handle (ROWID INTEGER PRIMARY KEY AUTOINCREMENT UNIQUE, id TEXT NOT NULL, country TEXT,
  service TEXT NOT NULL, uncanonicalized_id TEXT, person_centric_id TEXT, UNIQUE (id, service));
CREATE TABLE message (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL, text TEXT,
  replace INTEGER DEFAULT 0, service_center TEXT, handle_id INTEGER DEFAULT 0, subject TEXT, country TEXT,
  attributedBody BLOB, version INTEGER DEFAULT 0, type INTEGER DEFAULT 0, service TEXT, account TEXT,
  account_guid TEXT, error INTEGER DEFAULT 0, date INTEGER, date_read INTEGER, date_delivered INTEGER,
  is_delivered INTEGER DEFAULT 0, is_finished INTEGER DEFAULT 0, is_emote INTEGER DEFAULT 0,
  is_from_me INTEGER DEFAULT 0, is_empty INTEGER DEFAULT 0, is_delayed INTEGER DEFAULT 0,
  is_auto_reply INTEGER DEFAULT 0, is_prepared INTEGER DEFAULT 0, is_read INTEGER DEFAULT 0,
  is_system_message INTEGER DEFAULT 0, is_sent INTEGER DEFAULT 0, has_dd_results INTEGER DEFAULT 0,
  cache_has_attachments INTEGER DEFAULT 0, item_type INTEGER DEFAULT 0, group_title TEXT,
  associated_message_guid TEXT, associated_message_type INTEGER DEFAULT 0, balloon_bundle_id TEXT,
  thread_originator_guid TEXT);
CREATE TABLE chat (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL, style INTEGER,
  state INTEGER, account_id TEXT, properties BLOB, chat_identifier TEXT, service_name TEXT, room_name TEXT,
  account_login TEXT, is_archived INTEGER DEFAULT 0, last_addressed_handle TEXT, display_name TEXT,
  group_id TEXT);
CREATE TABLE chat_handle_join (chat_id INTEGER REFERENCES chat (ROWID) ON DELETE CASCADE,
  handle_id INTEGER REFERENCES handle (ROWID) ON DELETE CASCADE, UNIQUE(chat_id, handle_id));
CREATE TABLE chat_message_join (chat_id INTEGER REFERENCES chat (ROWID) ON DELETE CASCADE,
  message_id INTEGER REFERENCES message (ROWID) ON DELETE CASCADE, message_date INTEGER DEFAULT 0,
  PRIMARY KEY (chat_id, message_id));
CREATE INDEX message_idx_handle ON message(handle_id, date);
CREATE INDEX chat_idx_identifier ON chat(chat_identifier);
INSERT INTO _SqliteDatabaseProperties VALUES ('_ClientVersion', '17004');
INSERT INTO handle (id, country, service) VALUES
  ('+15555550123', 'us', 'SMS'), ('friend@example.com', 'us', 'iMessage'), ('+15555550188', 'us', 'iMessage');
INSERT INTO chat (guid, style, state, account_id, chat_identifier, service_name, account_login,
  last_addressed_handle) VALUES
  ('SMS;-;+15555550123', 45, 3, 'C2A1E8B4-4B0F-4C4E-9C1A-1F2E3D4C5B6A', '+15555550123', 'SMS', 'P:+15555550100',
   '+15555550100'),
  ('iMessage;-;friend@example.com', 45, 3, '9E8D7C6B-5A49-4838-A726-15F4E3D2C1B0', 'friend@example.com',
   'iMessage', 'E:owner@example.com', 'owner@example.com'),
  ('iMessage;-;+15555550188', 45, 3, '9E8D7C6B-5A49-4838-A726-15F4E3D2C1B0', '+15555550188', 'iMessage',
   'E:owner@example.com', 'owner@example.com');
INSERT INTO chat_handle_join VALUES (1, 1), (2, 2), (3, 3);
)SQL";

struct Message {
    int handle;  // also the chat
    bool fromMe;
    int minutes;  // after the first message
    const char* text;
};

const Message kMessages[] = {
    {1, false, 0, "Your table for two is booked for 7 pm."},
    {1, true, 3, "Thanks, see you then"},
    {2, false, 60, "Are we still on for Saturday?"},
    {2, true, 62, "Yes! Bring the map \xF0\x9F\x97\xBA"},
    {2, false, 63, "Will do"},
    {3, true, 1440, "Package left at the door"},
    {3, false, 1441, "Got it, merci beaucoup"},
    {1, false, 2880, "Reminder: dentist tomorrow at 9:30"},
};

// 2024-03-01 10:00:00 UTC in Cocoa nanoseconds, the unit of iOS 11 and later.
constexpr int64_t kFirstMessageDate = (1709287200ll - 978307200ll) * 1000000000ll;

}  // namespace

std::string buildSmsDatabase() {
    MemoryDatabase db;
    if (!db.exec("PRAGMA page_size = 4096") || !db.exec(kSchema)) return std::string();
    Statement insert(db,
                     "INSERT INTO message (guid, text, handle_id, service, account, date, date_read, "
                     "date_delivered, is_delivered, is_finished, is_from_me, is_read, is_sent, version) "
                     "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, 1, ?, ?, ?, 10)");
    Statement join(db, "INSERT INTO chat_message_join VALUES (?, ?, ?)");
    if (!insert.ok() || !join.ok()) return std::string();
    int64_t row = 0;
    for (const Message& m : kMessages) {
        ++row;
        const int64_t date = kFirstMessageDate + int64_t(m.minutes) * 60 * 1000000000ll;
        char guid[40];
        snprintf(guid, sizeof guid, "5B1F2C3D-4E5F-4A6B-8C7D-%012llX", static_cast<unsigned long long>(row));
        const bool sms = m.handle == 1;
        sqlite3_stmt* s = insert.get();
        sqlite3_reset(s);
        sqlite3_bind_text(s, 1, guid, -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(s, 2, m.text, -1, SQLITE_STATIC);
        sqlite3_bind_int(s, 3, m.handle);
        sqlite3_bind_text(s, 4, sms ? "SMS" : "iMessage", -1, SQLITE_STATIC);
        sqlite3_bind_text(s, 5, sms ? "p:+15555550100" : "e:owner@example.com", -1, SQLITE_STATIC);
        sqlite3_bind_int64(s, 6, date);
        sqlite3_bind_int64(s, 7, m.fromMe ? 0 : date + 30 * 1000000000ll);
        sqlite3_bind_int64(s, 8, m.fromMe ? date + 2 * 1000000000ll : 0);
        sqlite3_bind_int(s, 9, m.fromMe);
        sqlite3_bind_int(s, 10, m.fromMe);
        sqlite3_bind_int(s, 11, !m.fromMe);
        sqlite3_bind_int(s, 12, m.fromMe);
        if (sqlite3_step(s) != SQLITE_DONE) return std::string();
        sqlite3_stmt* j = join.get();
        sqlite3_reset(j);
        sqlite3_bind_int(j, 1, m.handle);
        sqlite3_bind_int64(j, 2, row);
        sqlite3_bind_int64(j, 3, date);
        if (sqlite3_step(j) != SQLITE_DONE) return std::string();
    }
    return db.bytes();
}

}  // namespace zsim
