#include "zeb_parent_transfer.h"

#include "zeb_json_parse.h"
#include "zeb_parent_commands.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace zparent {

namespace {

constexpr uint32_t kCopy = 701, kPull = 702, kPush = 703, kList = 704;
constexpr uint32_t kDeviceGone = 8;
constexpr int64_t kPieceSize = 0x200000;

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

std::string commandJson(const std::string& udid, int64_t code, int64_t stage,
                        const std::function<void(Writer&)>& info = nullptr) {
    rapidjson::StringBuffer text;
    Writer writer(text);
    writer.StartObject();
    writer.Key("uuid");
    writer.String(udid.c_str(), static_cast<rapidjson::SizeType>(udid.size()));
    writer.Key("code");
    writer.Int64(code);
    if (stage >= 0) {
        writer.Key("stage");
        writer.Int64(stage);
    }
    if (info) {
        writer.Key("info");
        info(writer);
    }
    writer.EndObject();
    return text.GetString();
}

std::string pieceInfoJson(int64_t id, int64_t offset, int64_t length) {
    rapidjson::StringBuffer text;
    Writer writer(text);
    writer.StartObject();
    writer.Key("id");
    writer.Int64(id);
    writer.Key("offset");
    writer.Int64(offset);
    writer.Key("offset_length");
    writer.Int64(length);
    writer.EndObject();
    return text.GetString();
}

int64_t integerOf(const rapidjson::Value& object, const char* key) {
    if (!object.IsObject()) return 0;
    auto found = object.FindMember(key);
    return found != object.MemberEnd() && found->value.IsInt64() ? found->value.GetInt64() : 0;
}

struct Piece {
    int64_t id = 0, offset = 0, length = 0;
};

// Pieces of a description's "fbs", in the text order of their names, which
// is the order the worker expects to be asked in.
std::map<std::string, Piece> readPieces(const rapidjson::Value& description, int64_t size) {
    std::map<std::string, Piece> pieces;
    auto fbs = description.FindMember("fbs");
    if (fbs == description.MemberEnd() || !fbs->value.IsObject()) return pieces;
    for (auto member = fbs->value.MemberBegin(); member != fbs->value.MemberEnd(); ++member) {
        Piece piece;
        piece.id = atoll(member->name.GetString());
        piece.offset = integerOf(member->value, "offset");
        piece.length = integerOf(member->value, "offset_length");
        // The worker's description is checked like any peer's input.
        if (piece.id <= 0 || piece.offset < 0 || piece.length <= 0 || piece.offset > size - piece.length) continue;
        pieces[member->name.GetString()] = piece;
    }
    return pieces;
}

enum class Wait { Event, Timeout, Gone, Closed, Interrupted };

// The next event of `taskId`; the device's going or an interruption ends
// the wait early. Events of other tasks are passed over.
Wait nextTaskEvent(ParentLink& link, uint64_t taskId, const std::string& udid, std::chrono::milliseconds timeout,
                   const std::atomic<bool>* interrupted, Event& out) {
    auto deadline = Clock::now() + timeout;
    while (Clock::now() < deadline) {
        if (interrupted && *interrupted) return Wait::Interrupted;
        auto event = link.nextEvent(std::chrono::milliseconds(200));
        if (!event) {
            if (link.closed()) return Wait::Closed;
            continue;
        }
        if (event->frame.taskId == 0 && event->frame.commandType == kDeviceGone && event->uuid == udid)
            return Wait::Gone;
        if (event->frame.taskId != taskId) continue;
        out = std::move(*event);
        return Wait::Event;
    }
    return Wait::Timeout;
}

const char* waitText(Wait wait) {
    switch (wait) {
        case Wait::Timeout: return "the worker did not answer in time";
        case Wait::Gone: return "the device went away";
        case Wait::Closed: return "the worker closed the link";
        case Wait::Interrupted: return "interrupted";
        default: return "";
    }
}

// Ends a transfer that is stopping early: a cancel, so that the worker
// drops it and removes what it left on the device.
void stopTransfer(ParentLink& link, uint64_t taskId, const std::string& udid, Wait why, TransferResult& result) {
    result.error = waitText(why);
    result.cancelled = why == Wait::Interrupted;
    if (why == Wait::Interrupted || why == Wait::Timeout)
        cancelTask(link, taskId + 0x100000000ull, udid, taskId, std::chrono::seconds(5));
}

// The pieces a partial pull already holds, when its record matches.
std::set<int64_t> readPartialRecord(const fs::path& local, const std::string& devicePath, int64_t size) {
    std::ifstream in(partialRecordPath(local));
    std::stringstream text;
    text << in.rdbuf();
    rapidjson::Document record;
    zeb::parseJson(record, text.str().c_str());
    std::set<int64_t> done;
    if (!record.IsObject() || integerOf(record, "size") != size) return done;
    auto path = record.FindMember("path");
    if (path == record.MemberEnd() || !path->value.IsString() || devicePath != path->value.GetString()) return done;
    std::error_code error;
    if (fs::file_size(partialPath(local), error) != static_cast<uintmax_t>(size) || error) return done;
    auto pieces = record.FindMember("done");
    if (pieces == record.MemberEnd() || !pieces->value.IsArray()) return done;
    for (const auto& id : pieces->value.GetArray())
        if (id.IsInt64()) done.insert(id.GetInt64());
    return done;
}

void writePartialRecord(const fs::path& local, const std::string& devicePath, int64_t size,
                        const std::set<int64_t>& done) {
    rapidjson::StringBuffer text;
    Writer writer(text);
    writer.StartObject();
    writer.Key("path");
    writer.String(devicePath.c_str(), static_cast<rapidjson::SizeType>(devicePath.size()));
    writer.Key("size");
    writer.Int64(size);
    writer.Key("done");
    writer.StartArray();
    for (int64_t id : done) writer.Int64(id);
    writer.EndArray();
    writer.EndObject();
    // Written beside and renamed, so that a kill leaves a whole record.
    fs::path record = partialRecordPath(local);
    fs::path fresh = record;
    fresh += ".new";
    {
        std::ofstream out(fresh, std::ios::binary | std::ios::trunc);
        out << text.GetString();
    }
    std::error_code error;
    fs::rename(fresh, record, error);
}

bool writeAt(int fd, const std::string& bytes, int64_t offset) {
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t wrote = pwrite(fd, bytes.data() + done, bytes.size() - done, offset + static_cast<off_t>(done));
        if (wrote <= 0) return false;
        done += static_cast<size_t>(wrote);
    }
    return true;
}

}  // namespace

fs::path partialPath(const fs::path& local) {
    fs::path path = local;
    path += ".part";
    return path;
}

fs::path partialRecordPath(const fs::path& local) {
    fs::path path = local;
    path += ".part.json";
    return path;
}

bool cancelTask(ParentLink& link, uint64_t cancelTaskId, const std::string& udid, uint64_t taskId,
                std::chrono::milliseconds timeout) {
    if (!sendCancel(link, cancelTaskId, udid, taskId)) return false;
    Event event;
    auto deadline = Clock::now() + timeout;
    while (Clock::now() < deadline) {
        Wait wait = nextTaskEvent(link, cancelTaskId, udid, timeout, nullptr, event);
        if (wait != Wait::Event) return false;
        if (isFinalReport(event)) return event.code == 0;
    }
    return false;
}

TransferResult pullFile(ParentLink& link, uint64_t taskId, const std::string& udid, const std::string& devicePath,
                        const fs::path& local, const TransferOptions& options) {
    TransferResult result;
    rapidjson::StringBuffer tailText;
    {
        Writer writer(tailText);
        writer.StartObject();
        writer.Key("path");
        writer.String(devicePath.c_str(), static_cast<rapidjson::SizeType>(devicePath.size()));
        writer.EndObject();
    }
    if (!link.sendCommand(taskId, kPull, commandJson(udid, 0, 1), std::string(tailText.GetString()))) {
        result.error = "sending the command failed";
        return result;
    }
    Event event;
    Wait wait = Wait::Event;
    do {
        wait = nextTaskEvent(link, taskId, udid, options.pieceTimeout, options.interrupted, event);
    } while (wait == Wait::Event && event.stage != 1);
    if (wait != Wait::Event) {
        stopTransfer(link, taskId, udid, wait, result);
        return result;
    }
    if (event.frame.packetStatus == 6) {
        result.error = "the device file is missing, empty or unreadable";
        return result;
    }
    rapidjson::Document description;
    zeb::parseJson(description, event.tail.c_str());
    result.size = integerOf(description, "size");
    auto pieces = readPieces(description, result.size);
    if (result.size <= 0 || pieces.empty()) {
        result.error = "the worker's file description is not usable";
        return result;
    }

    std::error_code error;
    if (local.has_parent_path()) fs::create_directories(local.parent_path(), error);
    std::set<int64_t> done = options.resume ? readPartialRecord(local, devicePath, result.size) : std::set<int64_t>();
    int flags = O_RDWR | O_CREAT | (done.empty() ? O_TRUNC : 0);
    int fd = ::open(partialPath(local).c_str(), flags, 0644);
    if (fd < 0 || ftruncate(fd, result.size) != 0) {
        if (fd >= 0) ::close(fd);
        result.error = "cannot write " + partialPath(local).string();
        stopTransfer(link, taskId, udid, Wait::Timeout, result);
        result.error = "cannot write " + partialPath(local).string();
        return result;
    }
    int64_t bytesDone = 0;
    for (const auto& [key, piece] : pieces)
        if (done.count(piece.id)) bytesDone += piece.length;
    result.skipped = bytesDone;
    if (options.progress) options.progress(bytesDone, result.size);

    // The next piece is asked for as soon as one arrives, before it is
    // written: the worker reads and sends while this side writes.
    std::vector<std::pair<std::string, Piece>> pending;
    for (const auto& entry : pieces)
        if (!done.count(entry.second.id)) pending.push_back(entry);
    auto ask = [&](const Piece& piece) {
        return link.sendCommand(taskId, kPull, commandJson(udid, 0, 2), pieceInfoJson(piece.id, piece.offset, piece.length));
    };
    if (!pending.empty() && !ask(pending.front().second)) wait = Wait::Closed;
    for (size_t i = 0; i < pending.size() && wait == Wait::Event; ++i) {
        const auto& [key, piece] = pending[i];
        do {
            wait = nextTaskEvent(link, taskId, udid, options.pieceTimeout, options.interrupted, event);
        } while (wait == Wait::Event && event.stage != 2);
        if (wait != Wait::Event) break;
        if (event.frame.packetStatus == 6) {
            // The worker has ended the transfer: the device's link broke.
            ::close(fd);
            result.error = kLinkBroke;
            return result;
        }
        const bool asked = i + 1 >= pending.size() || ask(pending[i + 1].second);
        rapidjson::Document info;
        zeb::parseJson(info, event.info.c_str());
        if (integerOf(info, "id") != piece.id || event.tail.size() != static_cast<size_t>(piece.length) ||
            !writeAt(fd, event.tail, piece.offset)) {
            ::close(fd);
            result.error = "piece " + key + " came back wrong or could not be written";
            stopTransfer(link, taskId, udid, Wait::Timeout, result);
            result.error = "piece " + key + " came back wrong or could not be written";
            return result;
        }
        done.insert(piece.id);
        writePartialRecord(local, devicePath, result.size, done);
        bytesDone += piece.length;
        result.transferred += piece.length;
        if (options.progress) options.progress(bytesDone, result.size);
        if (!asked) wait = Wait::Closed;
    }
    ::close(fd);
    if (wait != Wait::Event) {
        stopTransfer(link, taskId, udid, wait, result);
        return result;
    }
    link.sendCommand(taskId, kPull, commandJson(udid, 0, 3));
    do {
        wait = nextTaskEvent(link, taskId, udid, options.pieceTimeout, options.interrupted, event);
    } while (wait == Wait::Event && event.stage != 3);
    fs::rename(partialPath(local), local, error);
    if (error) {
        result.error = "cannot rename the partial file: " + error.message();
        return result;
    }
    fs::remove(partialRecordPath(local), error);
    result.ok = true;
    return result;
}

TransferResult pushFile(ParentLink& link, uint64_t taskId, const std::string& udid, const fs::path& local,
                        const PushTarget& target, const TransferOptions& options) {
    TransferResult result;
    int fd = ::open(local.c_str(), O_RDONLY);
    struct stat st {};
    if (fd < 0 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= 0) {
        if (fd >= 0) ::close(fd);
        result.error = "cannot read " + local.string() + " (or it is empty)";
        return result;
    }
    result.size = st.st_size;
    const std::string name = target.name.empty() ? local.filename().string() : target.name;

    rapidjson::StringBuffer description;
    {
        Writer writer(description);
        writer.StartObject();
        writer.Key("md5");
        writer.String("");
        writer.Key("version");
        writer.String("1");
        writer.Key("size");
        writer.Int64(result.size);
        writer.Key("fbs");
        writer.StartObject();
        int64_t count = (result.size + kPieceSize - 1) / kPieceSize;
        for (int64_t id = 1; id <= count; ++id) {
            std::string key = std::to_string(id);
            writer.Key(key.c_str());
            writer.StartObject();
            writer.Key("status");
            writer.Int(0);
            writer.Key("offset");
            writer.Int64((id - 1) * kPieceSize);
            writer.Key("offset_length");
            writer.Int64(id == count ? result.size - (id - 1) * kPieceSize : kPieceSize);
            writer.EndObject();
        }
        writer.EndObject();
        writer.EndObject();
    }
    std::string open = commandJson(udid, 0, 1, [&](Writer& writer) {
        writer.StartObject();
        writer.Key("name");
        writer.String(name.c_str(), static_cast<rapidjson::SizeType>(name.size()));
        if (target.media >= 0) {
            writer.Key("media");
            writer.Int(target.media);
        } else {
            writer.Key("dir");
            writer.String(target.folder.c_str(), static_cast<rapidjson::SizeType>(target.folder.size()));
        }
        writer.EndObject();
    });
    if (!link.sendCommand(taskId, kPush, open, std::string(description.GetString()))) {
        ::close(fd);
        result.error = "sending the command failed";
        return result;
    }

    // The worker asks for the first unfinished piece in the order of the
    // keys as text; the one after the piece just sent is read from the local
    // file while the worker writes that piece to the device.
    std::map<std::string, int64_t> askOrder;
    const int64_t pieceCount = (result.size + kPieceSize - 1) / kPieceSize;
    for (int64_t id = 1; id <= pieceCount; ++id) askOrder.emplace(std::to_string(id), id);
    struct LocalPiece {
        int64_t offset = -1;  // -1 until a read succeeded
        std::vector<char> bytes;
        bool holds(int64_t at, int64_t length) const {
            return offset == at && bytes.size() == static_cast<size_t>(length);
        }
    };
    LocalPiece now, ahead;
    auto readLocal = [&](LocalPiece& piece, int64_t offset, int64_t length) {
        piece.bytes.resize(static_cast<size_t>(length));
        piece.offset = pread(fd, piece.bytes.data(), piece.bytes.size(), offset) == length ? offset : -1;
        return piece.offset == offset;
    };
    bool first = true;
    for (;;) {
        Event event;
        Wait wait = nextTaskEvent(link, taskId, udid, options.pieceTimeout, options.interrupted, event);
        if (wait != Wait::Event) {
            ::close(fd);
            stopTransfer(link, taskId, udid, wait, result);
            if (wait == Wait::Timeout && first)
                result.error = "the device did not ask for a piece (bad target folder, or nothing left to send)";
            return result;
        }
        if (event.stage == 3) break;
        if (event.stage != 2) continue;
        if (event.frame.packetStatus == 6) {
            // The worker has ended the transfer: the device's link broke.
            ::close(fd);
            result.error = kLinkBroke;
            return result;
        }
        rapidjson::Document request;
        zeb::parseJson(request, event.tail.c_str());
        int64_t id = integerOf(request, "id"), offset = integerOf(request, "offset"),
                length = integerOf(request, "offset_length");
        if (id <= 0 || offset < 0 || length <= 0 || length > 64 * kPieceSize || offset > result.size - length) {
            ::close(fd);
            result.error = "the worker asked for a piece outside the file";
            stopTransfer(link, taskId, udid, Wait::Timeout, result);
            result.error = "the worker asked for a piece outside the file";
            return result;
        }
        if (first) {
            // A resumed upload starts further on: what lies before was kept.
            result.skipped = offset;
            first = false;
            if (options.progress) options.progress(offset, result.size);
        }
        if (ahead.holds(offset, length)) std::swap(now, ahead);
        else if (!readLocal(now, offset, length)) {
            ::close(fd);
            result.error = "reading the local file failed";
            stopTransfer(link, taskId, udid, Wait::Timeout, result);
            result.error = "reading the local file failed";
            return result;
        }
        // The piece goes raw behind its JSON text, not compressed.
        std::string json = commandJson(udid, 0, 2, [&](Writer& writer) {
            writer.StartObject();
            writer.Key("id");
            writer.Int64(id);
            writer.Key("offset");
            writer.Int64(offset);
            writer.Key("offset_length");
            writer.Int64(length);
            writer.EndObject();
        });
        if (!link.send(encodeCommandHead(taskId, kPush, json, now.bytes.size()), now.bytes.data(), now.bytes.size())) {
            ::close(fd);
            result.error = "the worker closed the link";
            return result;
        }
        auto next = askOrder.upper_bound(std::to_string(id));
        if (next != askOrder.end()) {
            const int64_t nextOffset = (next->second - 1) * kPieceSize;
            readLocal(ahead, nextOffset, std::min(kPieceSize, result.size - nextOffset));
        }
        result.transferred += length;
        if (options.progress) options.progress(std::min(result.size, offset + length), result.size);
    }
    ::close(fd);
    if (options.progress) options.progress(result.size, result.size);
    result.ok = true;
    return result;
}

CopyResult copyItems(ParentLink& link, uint64_t taskId, const std::string& udid, const std::vector<CopyRequest>& items,
                     std::chrono::milliseconds timeout) {
    CopyResult result;
    rapidjson::StringBuffer text;
    {
        Writer writer(text);
        writer.StartArray();
        for (const auto& item : items) {
            writer.StartArray();
            for (const std::string* value : {&item.displayName, &item.devicePath, &item.localFolder})
                writer.String(value->c_str(), static_cast<rapidjson::SizeType>(value->size()));
            writer.EndArray();
        }
        writer.EndArray();
    }
    if (!link.sendCommand(taskId, kCopy, commandJson(udid, 0, -1), std::string(text.GetString()))) return result;
    auto deadline = Clock::now() + timeout;
    Event event;
    while (Clock::now() < deadline) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (nextTaskEvent(link, taskId, udid, left, nullptr, event) != Wait::Event) break;
        if (event.stage == 2) result.copied.push_back(event.tail);
        if (isFinalReport(event)) {
            result.code = event.code;
            break;
        }
    }
    return result;
}

FolderListing listFolder(ParentLink& link, uint64_t taskId, const std::string& udid, const std::string& path,
                         std::chrono::milliseconds timeout) {
    FolderListing listing;
    rapidjson::StringBuffer text;
    {
        Writer writer(text);
        writer.StartObject();
        writer.Key("path");
        writer.String(path.c_str(), static_cast<rapidjson::SizeType>(path.size()));
        writer.EndObject();
    }
    if (!link.sendCommand(taskId, kList, commandJson(udid, 0, -1), std::string(text.GetString()))) return listing;
    auto deadline = Clock::now() + timeout;
    Event event;
    while (Clock::now() < deadline) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (nextTaskEvent(link, taskId, udid, left, nullptr, event) != Wait::Event) break;
        if (isFinalReport(event)) {
            listing.code = event.code;
            break;
        }
        if (event.stage != 1) continue;
        rapidjson::Document chunk;
        zeb::parseJson(chunk, event.tail.c_str());
        if (!chunk.IsArray()) continue;
        for (const auto& value : chunk.GetArray()) {
            if (!value.IsObject()) continue;
            FolderEntry entry;
            auto text = [&](const char* key) {
                auto found = value.FindMember(key);
                return found != value.MemberEnd() && found->value.IsString() ? std::string(found->value.GetString())
                                                                            : std::string();
            };
            entry.name = text("name");
            entry.type = text("type");
            entry.target = text("target");
            entry.size = integerOf(value, "size");
            entry.mtime = integerOf(value, "mtime");
            listing.entries.push_back(std::move(entry));
        }
    }
    return listing;
}

}  // namespace zparent
