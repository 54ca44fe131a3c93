// com.apple.mobilebackup2 over a socket pair, with a host that answers the
// way the worker's own backup loop does: every download refused (the first
// path only, then the end of the stream and -13 "Multi status"), free space
// as a 64-bit integer, XML status answers, and no answer at all to
// DLMessageRemoveFiles or DLMessageCopyItem. The stock idevicebackup2 is
// covered by the scripts next to this file.
#include "core/app_registry.h"
#include "core/backup_settings.h"
#include "core/plist_util.h"
#include "core/sync_store.h"
#include "plist_frames.h"

#include <gtest/gtest.h>
#include <openssl/sha.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

using namespace wiretest;
using zsim::adopt;
using zsim::PlistPtr;

namespace {

const char* const kUdid = "00008110-00000000000B0C01";
const char* const kEmpty = "___EmptyParameterString___";
const char* const kSmsFile = "3d/3d0d7e5fb2ce288813306e4d4636395e047a3d28";

std::string profileWith(const std::string& backupKeys, const std::string& more = "") {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
           "<key>Values</key><dict><key>DeviceName</key><string>Wire iPhone</string>"
           "<key>ProductType</key><string>iPhone14,5</string></dict>"
           "<key>Backup</key><dict>" + backupKeys + "</dict>" + more + "</dict></plist>";
}

// A device with one store app and one note, for restores to carry over.
const char* const kStocked =
    "<key>Apps</key><dict><key>User</key><array><dict>"
    "<key>CFBundleIdentifier</key><string>com.example.wire</string>"
    "<key>CFBundleDisplayName</key><string>Wire App</string>"
    "<key>CFBundleShortVersionString</key><string>2.5</string></dict></array></dict>"
    "<key>Sync</key><dict><key>Notes</key><dict><key>Records</key><dict><key>n-1</key><dict>"
    "<key>com.apple.syncservices.RecordEntityName</key><string>com.apple.notes.Note</string>"
    "<key>subject</key><string>Wire note</string></dict></dict></dict></dict>";

plist_t array(std::initializer_list<plist_t> items) {
    plist_t a = plist_new_array();
    for (plist_t item : items) plist_array_append_item(a, item);
    return a;
}

std::string textAt(plist_t message, uint32_t i) {
    plist_t item = message && i < plist_array_get_size(message) ? plist_array_get_item(message, i) : nullptr;
    return item && plist_get_node_type(item) == PLIST_STRING ? plist_get_string_ptr(item, nullptr) : "";
}

std::string sha1Hex(const std::string& text) {
    unsigned char d[SHA_DIGEST_LENGTH];
    SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), d);
    char hex[41];
    for (int i = 0; i < SHA_DIGEST_LENGTH; ++i) snprintf(hex + 2 * i, 3, "%02x", d[i]);
    return hex;
}

// What the device did in one conversation, seen from the host.
struct Conversation {
    std::vector<std::string> messages;  // names, in order
    std::vector<double> progress;       // the first real of each message that has one
    std::map<std::string, std::string> files;  // the host's folder after uploads and moves
    std::vector<std::string> unanswerable;     // messages this host never answers
    size_t largestFrame = 0;
    bool uploadCut = false;  // the device vanished inside an upload
    int64_t errorCode = -1;  // of DLMessageProcessMessage
    std::string errorDescription;
};

class Device {
public:
    explicit Device(const std::string& backupKeys = "", const std::string& more = "")
        : profileText_(profileWith(backupKeys, more)),
          profile_(zsim::parsePlist(profileText_.data(), profileText_.size())),
          run_("com.apple.mobilebackup2", context()) {}

    ServiceRun& run() { return run_; }

    PlistPtr receive(int timeoutMs = 5000) { return adopt(receivePlist(run_, Endian::Big, timeoutMs)); }
    void send(plist_t message) {
        PlistPtr owned = adopt(message);
        ASSERT_TRUE(sendPlist(run_, message, Endian::Big, false));
    }
    void status(int64_t code, const char* text, plist_t value) {
        send(array({plist_new_string("DLMessageStatusResponse"), plist_new_uint(static_cast<uint64_t>(code)),
                    plist_new_string(text), value}));
    }

    // Version exchange and Hello as the worker sends them; the protocol
    // version the device chose (0 when it refused).
    double open(plist_t versionsOk = nullptr, plist_t offered = nullptr) {
        PlistPtr exchange = receive();
        if (textAt(exchange.get(), 0) != "DLMessageVersionExchange") return -1;
        send(versionsOk ? versionsOk
                        : array({plist_new_string("DLMessageVersionExchange"), plist_new_string("DLVersionsOk"),
                                 plist_new_uint(300)}));
        if (textAt(receive().get(), 0) != "DLMessageDeviceReady") return -1;
        plist_t hello = plist_new_dict();
        plist_dict_set_item(hello, "MessageName", plist_new_string("Hello"));
        plist_dict_set_item(hello, "SupportedProtocolVersions",
                            offered ? offered : array({plist_new_uint(2), plist_new_real(2.1)}));
        send(array({plist_new_string("DLMessageProcessMessage"), hello}));
        PlistPtr answer = receive();
        plist_t body = answer ? plist_array_get_item(answer.get(), 1) : nullptr;
        if (zsim::dictUInt(body, "ErrorCode").value_or(99) != 0) return 0;
        double version = 0;
        plist_get_real_val(plist_dict_get_item(body, "ProtocolVersion"), &version);
        return version;
    }

    void request(const char* name) {
        plist_t body = plist_new_dict();
        plist_dict_set_item(body, "MessageName", plist_new_string(name));
        plist_dict_set_item(body, "TargetIdentifier", plist_new_string(kUdid));
        send(array({plist_new_string("DLMessageProcessMessage"), body}));
    }

    // The worker's loop, until the device says goodbye, reports an error
    // or goes away.
    Conversation backup() {
        Conversation c;
        request("Backup");
        while (PlistPtr message = receive()) {
            plist_t m = message.get();
            const std::string name = textAt(m, 0);
            c.messages.push_back(name);
            for (uint32_t i = 1; i < plist_array_get_size(m); ++i) {
                if (plist_get_node_type(plist_array_get_item(m, i)) != PLIST_REAL) continue;
                double p = 0;
                plist_get_real_val(plist_array_get_item(m, i), &p);
                c.progress.push_back(p);
                break;
            }
            if (name == "DLMessageDownloadFiles") {
                refuseDownload(textAt(plist_array_get_item(m, 1), 0));
            } else if (name == "DLMessageGetFreeDiskSpace") {
                status(0, kEmpty, plist_new_uint(INT64_MAX));
            } else if (name == "DLMessageCreateDirectory") {
                status(0, kEmpty, plist_new_string(kEmpty));
            } else if (name == "DLContentsOfDirectory") {
                status(0, kEmpty, plist_new_dict());
            } else if (name == "DLMessageUploadFiles") {
                if (!readUpload(c)) return c;
                status(0, kEmpty, plist_new_dict());
            } else if (name == "DLMessageMoveItems") {
                move(c, plist_array_get_item(m, 1));
                status(0, kEmpty, plist_new_dict());
            } else if (name == "DLMessageRemoveItems") {
                const std::string prefix = textAt(plist_array_get_item(m, 1), 0) + "/";
                for (auto it = c.files.begin(); it != c.files.end();)
                    it = it->first.compare(0, prefix.size(), prefix) == 0 ? c.files.erase(it) : std::next(it);
                status(0, kEmpty, plist_new_dict());
            } else if (name == "DLMessageProcessMessage") {
                plist_t body = plist_array_get_item(m, 1);
                c.errorCode = static_cast<int64_t>(zsim::dictUInt(body, "ErrorCode").value_or(UINT64_MAX));
                c.errorDescription = zsim::dictString(body, "ErrorDescription").value_or("");
                if (c.errorCode == 0) status(0, kEmpty, plist_new_dict());
            } else if (name == "DLMessageDisconnect") {
                return c;
            } else {
                c.unanswerable.push_back(name);
            }
        }
        return c;
    }

    // A restore of the backup in `folder` (the host's files by path), the
    // worker's way: every asked file streamed whole, a missing one refused.
    Conversation restore(const std::map<std::string, std::string>& folder, plist_t options) {
        Conversation c;
        plist_t body = plist_new_dict();
        plist_dict_set_item(body, "MessageName", plist_new_string("Restore"));
        plist_dict_set_item(body, "TargetIdentifier", plist_new_string(kUdid));
        plist_dict_set_item(body, "SourceIdentifier", plist_new_string(kUdid));
        plist_dict_set_item(body, "Options", options);
        send(array({plist_new_string("DLMessageProcessMessage"), body}));
        while (PlistPtr message = receive()) {
            plist_t m = message.get();
            const std::string name = textAt(m, 0);
            c.messages.push_back(name);
            if (name == "DLMessageDownloadFiles") {
                serve(folder, plist_array_get_item(m, 1));
            } else if (name == "DLMessageProcessMessage") {
                plist_t answer = plist_array_get_item(m, 1);
                c.errorCode = static_cast<int64_t>(zsim::dictUInt(answer, "ErrorCode").value_or(UINT64_MAX));
                c.errorDescription = zsim::dictString(answer, "ErrorDescription").value_or("");
            } else if (name == "DLMessageDisconnect") {
                return c;
            } else {
                c.unanswerable.push_back(name);
            }
        }
        return c;
    }

    const zsim::ServiceContext& ctx() const { return ctx_; }
    std::filesystem::path media() const { return ctx_.mediaRoot; }

private:
    zsim::ServiceContext context() {
        ctx_.udid = kUdid;
        ctx_.stateDir = state_.path() / kUdid;
        ctx_.mediaRoot = ctx_.stateDir / "media";
        std::filesystem::create_directories(ctx_.mediaRoot);
        ctx_.profile = profile_.get();
        return ctx_;
    }

    void serve(const std::map<std::string, std::string>& folder, plist_t paths) {
        std::string raw;
        bool all = true;
        for (uint32_t i = 0; i < plist_array_get_size(paths); ++i) {
            const std::string path = textAt(paths, i);
            raw += frameLength(path.size()) + path;
            auto it = folder.find(path);
            if (it == folder.end()) {
                const std::string text = "No such file or directory";
                raw += frameLength(text.size() + 1) + '\x06' + text;
                all = false;
                continue;
            }
            for (size_t at = 0; at < it->second.size(); at += 32768) {
                const std::string piece = it->second.substr(at, 32768);
                raw += frameLength(piece.size() + 1) + '\x0C' + piece;
            }
            raw += frameLength(1) + '\x00';
        }
        raw += frameLength(0);
        ASSERT_TRUE(run_.sendAll(raw.data(), raw.size()));
        status(all ? 0 : -13, all ? kEmpty : "Multi status", plist_new_dict());
    }

    void refuseDownload(const std::string& path) {
        const char* text = "No such file or directory";
        std::string raw = frameLength(path.size()) + path + frameLength(strlen(text) + 1) + '\x06' + text +
                          frameLength(0);
        ASSERT_TRUE(run_.sendAll(raw.data(), raw.size()));
        plist_t detail = plist_new_dict();
        plist_dict_set_item(detail, "DLFileErrorCode", plist_new_uint(static_cast<uint64_t>(-6)));
        plist_dict_set_item(detail, "DLFileErrorString", plist_new_string(text));
        plist_t files = plist_new_dict();
        plist_dict_set_item(files, path.c_str(), detail);
        status(-13, "Multi status", files);
    }

    static std::string frameLength(size_t n) {
        return {static_cast<char>(n >> 24), static_cast<char>(n >> 16), static_cast<char>(n >> 8), static_cast<char>(n)};
    }

    bool readLength(uint32_t& n) {
        unsigned char b[4];
        if (!run_.recvExact(b, 4)) return false;
        n = uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3];
        return true;
    }

    bool readText(std::string& text, uint32_t n) {
        text.resize(n);
        return n == 0 || run_.recvExact(text.data(), n);
    }

    // The raw upload stream; false when it broke off.
    bool readUpload(Conversation& c) {
        for (;;) {
            uint32_t n = 0;
            std::string deviceName, path, data, chunk;
            if (!readLength(n)) return !(c.uploadCut = true);
            if (n == 0) return true;
            if (!readText(deviceName, n) || !readLength(n) || !readText(path, n)) return !(c.uploadCut = true);
            for (uint8_t code = 0x0C; code == 0x0C;) {
                if (!readLength(n) || n == 0 || !run_.recvExact(&code, 1) || !readText(chunk, n - 1))
                    return !(c.uploadCut = true);
                if (code == 0x0C) {
                    data += chunk;
                    c.largestFrame = std::max<size_t>(c.largestFrame, n - 1);
                }
            }
            c.files[path] = data;
        }
    }

    static void move(Conversation& c, plist_t moves) {
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(moves, &it);
        for (;;) {
            char* from = nullptr;
            plist_t to = nullptr;
            plist_dict_next_item(moves, it, &from, &to);
            if (!from) break;
            auto found = c.files.find(from);
            if (found != c.files.end()) {
                c.files[plist_get_string_ptr(to, nullptr)] = found->second;
                c.files.erase(found);
            }
            free(from);
        }
        free(it);
    }

    TempDir state_;
    std::string profileText_;
    PlistPtr profile_;
    zsim::ServiceContext ctx_;
    ServiceRun run_;
};

// Rows of a SQLite file's query, each row's columns joined with '|'.
std::vector<std::string> query(const std::string& bytes, const char* sql) {
    TempDir dir;
    writeFile(dir.path() / "db", bytes);
    sqlite3* db = nullptr;
    std::vector<std::string> rows;
    if (sqlite3_open_v2((dir.path() / "db").c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* s = nullptr;
        if (sqlite3_prepare_v2(db, sql, -1, &s, nullptr) == SQLITE_OK) {
            while (sqlite3_step(s) == SQLITE_ROW) {
                std::string row;
                for (int i = 0; i < sqlite3_column_count(s); ++i) {
                    const unsigned char* t = sqlite3_column_text(s, i);
                    row += (i ? "|" : "") + std::string(t ? reinterpret_cast<const char*>(t) : "");
                }
                rows.push_back(row);
            }
            sqlite3_finalize(s);
        }
    }
    sqlite3_close(db);
    return rows;
}

PlistPtr plistOf(const std::string& bytes) { return zsim::parsePlist(bytes.data(), bytes.size()); }

TEST(BackupHandshake, TheDeviceOffers300AndTakesVersionAnswersOfTwoToFourElements) {
    for (uint32_t extra = 0; extra <= 2; ++extra) {
        Device device;
        plist_t ok = array({plist_new_string("DLMessageVersionExchange"), plist_new_string("DLVersionsOk")});
        for (uint32_t i = 0; i < extra; ++i) plist_array_append_item(ok, plist_new_uint(i == 0 ? 300 : 0));
        EXPECT_DOUBLE_EQ(device.open(ok), 2.1) << extra;
    }
    Device refused;
    PlistPtr exchange = refused.receive();
    ASSERT_TRUE(exchange);
    uint64_t major = 0, minor = 1;
    plist_get_uint_val(plist_array_get_item(exchange.get(), 1), &major);
    plist_get_uint_val(plist_array_get_item(exchange.get(), 2), &minor);
    EXPECT_EQ(major, 300u);
    EXPECT_EQ(minor, 0u);
    refused.send(array({plist_new_string("DLMessageVersionExchange"), plist_new_string("DLVersionsRefused")}));
    EXPECT_TRUE(refused.run().peerClosed());
}

TEST(BackupHandshake, HelloPicksTheHighestCommonProtocolVersion) {
    EXPECT_DOUBLE_EQ(Device().open(nullptr, array({plist_new_real(2.0), plist_new_real(2.1)})), 2.1);
    EXPECT_DOUBLE_EQ(Device().open(nullptr, array({plist_new_real(2.0)})), 2.0);
    EXPECT_DOUBLE_EQ(Device().open(nullptr, array({plist_new_uint(2)})), 2.0);
    EXPECT_DOUBLE_EQ(Device().open(nullptr, array({plist_new_real(3.0)})), 0.0);
}

TEST(BackupConversation, AWorkerStyleBackupReachesExactly100WithEveryFileInPlace) {
    Device device;
    ASSERT_GT(device.open(), 0);
    const Conversation c = device.backup();

    EXPECT_TRUE(c.unanswerable.empty()) << c.unanswerable.front();
    ASSERT_GE(c.messages.size(), 2u);
    EXPECT_EQ(c.messages[c.messages.size() - 2], "DLMessageProcessMessage");
    EXPECT_EQ(c.messages.back(), "DLMessageDisconnect");
    EXPECT_EQ(c.errorCode, 0) << c.errorDescription;
    ASSERT_FALSE(c.progress.empty());
    EXPECT_TRUE(std::is_sorted(c.progress.begin(), c.progress.end()));
    EXPECT_EQ(c.progress.back(), 100.0);
    EXPECT_LE(c.largestFrame, 32768u);
    EXPECT_FALSE(c.uploadCut);

    const std::string root = std::string(kUdid) + "/";
    for (const auto& [path, bytes] : c.files) EXPECT_EQ(path.find("/Snapshot/"), std::string::npos) << path;
    ASSERT_TRUE(c.files.count(root + "Status.plist"));
    PlistPtr status = plistOf(c.files.at(root + "Status.plist"));
    EXPECT_EQ(zsim::dictString(status.get(), "SnapshotState").value_or(""), "finished");
    // The old Status.plist was refused: nothing to build on.
    EXPECT_EQ(zsim::dictBool(status.get(), "IsFullBackup"), true);
    EXPECT_TRUE(plistOf(c.files.at(root + "Manifest.plist")));

    // Manifest.db names exactly the hashed files that came, by the hash of
    // their domain and path.
    const auto rows = query(c.files.at(root + "Manifest.db"), "SELECT fileID, domain, relativePath FROM Files WHERE flags = 1");
    size_t hashed = 0;
    for (const auto& [path, bytes] : c.files) hashed += path.size() == root.size() + 43;
    EXPECT_EQ(rows.size(), hashed);
    EXPECT_GT(rows.size(), 200u);
    for (const auto& row : rows) {
        const std::string id = row.substr(0, 40);
        const size_t bar = row.find('|', 41);
        EXPECT_EQ(id, sha1Hex(row.substr(41, bar - 41) + "-" + row.substr(bar + 1))) << row;
        EXPECT_TRUE(c.files.count(root + id.substr(0, 2) + "/" + id)) << row;
    }
    ASSERT_TRUE(c.files.count(root + kSmsFile));
    const auto messages = query(c.files.at(root + kSmsFile), "SELECT count(*) FROM message");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_GT(std::stoi(messages[0]), 0);
}

TEST(BackupConversation, FailAtPercentEndsWithError105BeforeTheEnd) {
    Device device("<key>FailAtPercent</key><integer>30</integer>");
    ASSERT_GT(device.open(), 0);
    const Conversation c = device.backup();
    EXPECT_EQ(c.errorCode, 105);
    EXPECT_FALSE(c.errorDescription.empty());
    EXPECT_EQ(c.messages.back(), "DLMessageDisconnect");
    ASSERT_FALSE(c.progress.empty());
    EXPECT_LT(c.progress.back(), 100.0);
    EXPECT_FALSE(c.uploadCut);
    EXPECT_FALSE(c.files.count(std::string(kUdid) + "/Status.plist"));
    EXPECT_FALSE(c.files.empty());
}

TEST(BackupConversation, DropAtPercentCutsAnUploadMidFrameAndCloses) {
    Device device("<key>DropAtPercent</key><real>40</real>");
    ASSERT_GT(device.open(), 0);
    const Conversation c = device.backup();
    EXPECT_TRUE(c.uploadCut);
    EXPECT_EQ(c.errorCode, -1);
    EXPECT_NE(c.messages.back(), "DLMessageDisconnect");
    EXPECT_TRUE(device.run().peerClosed());
}

TEST(BackupConversation, AStalledDeviceSendsNothingUntilReleased) {
    Device device("<key>PageDelayMilliseconds</key><integer>1</integer>");
    ASSERT_GT(device.open(), 0);
    device.run().stalled = true;
    device.request("Backup");
    unsigned char byte;
    EXPECT_FALSE(device.run().recvExact(&byte, 1, 300));
    device.run().stalled = false;
    PlistPtr first = device.receive();
    EXPECT_EQ(textAt(first.get(), 0), "DLMessageDownloadFiles");
}

// The Options the worker sends: nothing but RestoreDontCopyBackup.
plist_t workerOptions() {
    plist_t options = plist_new_dict();
    plist_dict_set_item(options, "RestoreDontCopyBackup", plist_new_bool(1));
    return options;
}

void put(const std::filesystem::path& file, const std::string& content) {
    std::filesystem::create_directories(file.parent_path());
    writeFile(file, content);
}

std::string readAll(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Adds Manifest.db rows (and the files they name) to a backup folder.
void addRows(std::map<std::string, std::string>& folder, const char* sql) {
    const std::string db = std::string(kUdid) + "/Manifest.db";
    TempDir dir;
    writeFile(dir.path() / "db", folder.at(db));
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open((dir.path() / "db").c_str(), &handle), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(handle, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(handle);
    sqlite3_close(handle);
    folder[db] = readAll(dir.path() / "db");
}

TEST(BackupRestore, TheWorkersBareRequestPutsMediaAppsAndStoresOnTheTarget) {
    Device source("", kStocked);
    put(source.media() / "DCIM" / "100APPLE" / "IMG_0001.JPG", "jpeg bytes");
    put(source.media() / "Downloads" / "a.txt", std::string(70000, 'a'));  // more than one frame
    ASSERT_GT(source.open(), 0);
    const Conversation backup = source.backup();
    ASSERT_EQ(backup.errorCode, 0) << backup.errorDescription;

    Device target;
    put(target.media() / "Downloads" / "own.txt", "kept");
    // The same photo is left alone; a file of the same size that differs
    // after its first frame is replaced whole.
    put(target.media() / "DCIM" / "100APPLE" / "IMG_0001.JPG", "jpeg bytes");
    struct stat before {};
    ASSERT_EQ(stat((target.media() / "DCIM" / "100APPLE" / "IMG_0001.JPG").c_str(), &before), 0);
    put(target.media() / "Downloads" / "a.txt", std::string(40000, 'a') + std::string(30000, 'b'));
    ASSERT_GT(target.open(), 0);
    const Conversation c = target.restore(backup.files, workerOptions());
    EXPECT_EQ(c.errorCode, 0) << c.errorDescription;
    EXPECT_EQ(c.messages.back(), "DLMessageDisconnect");
    EXPECT_TRUE(c.unanswerable.empty());
    EXPECT_EQ(readAll(target.media() / "DCIM" / "100APPLE" / "IMG_0001.JPG"), "jpeg bytes");
    struct stat after {};
    ASSERT_EQ(stat((target.media() / "DCIM" / "100APPLE" / "IMG_0001.JPG").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_TRUE(readAll(target.media() / "Downloads" / "a.txt") == std::string(70000, 'a'));
    EXPECT_EQ(readAll(target.media() / "Downloads" / "own.txt"), "kept");
    // The generated content's camera roll lands too; its other domains do not.
    EXPECT_TRUE(std::filesystem::exists(target.media() / "Recordings" / "Recording-0001.bin"));

    PlistPtr app = zsim::appRegistryFor(target.ctx()).find("com.example.wire");
    ASSERT_TRUE(app);
    EXPECT_EQ(zsim::dictString(app.get(), "CFBundleDisplayName").value_or(""), "Wire App");
    EXPECT_EQ(zsim::dictString(app.get(), "CFBundleShortVersionString").value_or(""), "2.5");
    EXPECT_TRUE(plist_dict_get_item(app.get(), "iTunesMetadata"));
    const std::string notes = zsim::syncStoreFor(target.ctx(), *zsim::findSyncDataClass("com.apple.Notes")).serialized();
    EXPECT_NE(notes.find("Wire note"), std::string::npos) << notes;
}

TEST(BackupRestore, FilesThatWouldLeaveTheMediaPartitionAreSkipped) {
    Device source;
    ASSERT_GT(source.open(), 0);
    Conversation backup = source.backup();
    ASSERT_EQ(backup.errorCode, 0);
    // Three rows naming the same bytes: a climb out, an empty component, and a
    // path through a link the target holds to a folder outside.
    const std::string id = std::string(40, 'e');
    backup.files[std::string(kUdid) + "/ee/" + id] = "escaped";
    backup.files[std::string(kUdid) + "/ff/" + std::string(40, 'f')] = "escaped";
    backup.files[std::string(kUdid) + "/dd/" + std::string(39, 'd') + "e"] = "escaped";
    addRows(backup.files,
            ("INSERT INTO Files VALUES ('" + id + "', 'MediaDomain', 'Media/../escape.txt', 1, NULL);"
             "INSERT INTO Files VALUES ('" + std::string(40, 'f') + "', 'MediaDomain', 'Media//escape.txt', 1, NULL);"
             "INSERT INTO Files VALUES ('" + std::string(39, 'd') + "e', 'MediaDomain', 'Media/link/escape.txt', 1, NULL);")
                .c_str());

    Device target;
    TempDir outside;
    std::filesystem::create_directory_symlink(outside.path(), target.media() / "link");
    ASSERT_GT(target.open(), 0);
    const Conversation c = target.restore(backup.files, workerOptions());
    EXPECT_EQ(c.errorCode, 0) << c.errorDescription;
    EXPECT_FALSE(std::filesystem::exists(target.media().parent_path() / "escape.txt"));
    EXPECT_FALSE(std::filesystem::exists(target.media() / "escape.txt"));
    EXPECT_TRUE(std::filesystem::is_empty(outside.path()));
}

TEST(BackupRestore, AnEncryptedBackupTakesOnlyItsOwnPassword) {
    Device source;
    ASSERT_EQ(zsim::backupSettingsFor(source.ctx().stateDir, kUdid, source.ctx().profile)
                  .changePassword(std::nullopt, "right")
                  .errorCode,
              0u);
    ASSERT_GT(source.open(), 0);
    const Conversation backup = source.backup();
    ASSERT_EQ(backup.errorCode, 0);
    PlistPtr manifest = plistOf(backup.files.at(std::string(kUdid) + "/Manifest.plist"));
    auto bag = zsim::dictData(manifest.get(), "BackupKeyBag");
    ASSERT_TRUE(bag);
    EXPECT_EQ(std::string(bag->begin(), bag->end()).find("right"), std::string::npos);

    for (const char* password : {static_cast<const char*>(nullptr), "wrong", "right"}) {
        Device target;
        ASSERT_GT(target.open(), 0);
        plist_t options = workerOptions();
        if (password) plist_dict_set_item(options, "Password", plist_new_string(password));
        const Conversation c = target.restore(backup.files, options);
        const bool right = password && std::string(password) == "right";
        EXPECT_EQ(c.errorCode, right ? 0 : 207) << (password ? password : "none");
        // A refused restore asks for nothing but the backup's description.
        const auto asked = std::count(c.messages.begin(), c.messages.end(), "DLMessageDownloadFiles");
        if (right) {
            EXPECT_GT(asked, 1);
        } else {
            EXPECT_EQ(c.errorDescription, "Invalid password (MBErrorDomain/207)");
            EXPECT_EQ(asked, 1);
        }
    }
}

TEST(BackupPassword, ChangePasswordNeedsTheOldPasswordToTurnEncryptionOff) {
    Device device;
    ASSERT_GT(device.open(), 0);
    auto change = [&](const char* oldPassword, const char* newPassword) {
        plist_t body = plist_new_dict();
        plist_dict_set_item(body, "MessageName", plist_new_string("ChangePassword"));
        plist_dict_set_item(body, "TargetIdentifier", plist_new_string(kUdid));
        if (oldPassword) plist_dict_set_item(body, "OldPassword", plist_new_string(oldPassword));
        if (newPassword) plist_dict_set_item(body, "NewPassword", plist_new_string(newPassword));
        device.send(array({plist_new_string("DLMessageProcessMessage"), body}));
        PlistPtr answer = device.receive();
        return zsim::dictUInt(answer ? plist_array_get_item(answer.get(), 1) : nullptr, "ErrorCode").value_or(999);
    };
    EXPECT_EQ(change(nullptr, "first"), 0u);
    EXPECT_NE(change(nullptr, "again"), 0u);  // already on
    EXPECT_EQ(change("wrong", nullptr), 207u);
    EXPECT_EQ(change("first", "second"), 0u);
    EXPECT_EQ(change("first", nullptr), 207u);
    EXPECT_EQ(change("second", nullptr), 0u);
    EXPECT_NE(change("second", nullptr), 0u);  // already off
}

}  // namespace
