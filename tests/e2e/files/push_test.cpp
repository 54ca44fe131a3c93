// Command 703: a local file pushed into the device piece by piece.
#include "file_fixture.h"
#include "zeb_parent_frame.h"

#include <thread>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using zparent::Event;

namespace {

constexpr size_t kPiece = 0x200000;

zparent::TransferOptions quick() {
    zparent::TransferOptions options;
    options.pieceTimeout = 20s;
    return options;
}

std::string pieceFrame(uint64_t task, const std::string& udid, int64_t id, int64_t offset, int64_t length,
                       const std::string& bytes) {
    zparent::Frame frame;
    frame.taskId = task;
    frame.commandType = 703;
    std::string json = "{\"uuid\":\"" + udid + "\",\"code\":0,\"stage\":2,\"info\":{\"id\":" + std::to_string(id) +
                       ",\"offset\":" + std::to_string(offset) + ",\"offset_length\":" + std::to_string(length) + "}}";
    frame.payload = std::string("1") + '\0' + json + '\0' + bytes;
    return zparent::encodeFrame(frame);
}

}  // namespace

TEST_F(FileCommands, PushLandsWholeAndLeavesNoTemporaryFiles) {
    const std::string bytes = patternBytes(3 * kPiece + 77, 9);
    writeLocal(local() / "song.bin", bytes);
    zparent::PushTarget target{"/Downloads/", "", -1};
    auto result = zparent::pushFile(worker->link, ++nextTask, udid, local() / "song.bin", target, quick());
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_TRUE(readOnDevice("/Downloads/song.bin") == bytes);
    EXPECT_FALSE(onDevice("/Downloads/song.bin.bak"));
    EXPECT_FALSE(onDevice("/Downloads/song.bin.bak.json"));

    // Again: the name is taken, the copy lands beside it.
    auto second = zparent::pushFile(worker->link, ++nextTask, udid, local() / "song.bin", target, quick());
    ASSERT_TRUE(second.ok) << second.error;
    EXPECT_TRUE(readOnDevice("/Downloads/song(1).bin") == bytes);

    // A book goes under /Books/ with media 0.
    writeLocal(local() / "a.epub", "small book");
    auto book = zparent::pushFile(worker->link, ++nextTask, udid, local() / "a.epub", {"", "", 0}, quick());
    ASSERT_TRUE(book.ok) << book.error;
    EXPECT_EQ(readOnDevice("/Books/a.epub"), "small book");
    EXPECT_FALSE(onDevice("/Books/a.epub.bak"));
}

TEST_F(FileCommands, PushResumesFromTheDevicesTemporaryFile) {
    const std::string bytes = patternBytes(3 * kPiece + 5, 4);
    writeLocal(local() / "movie.bin", bytes);
    // What an interrupted upload left: the temporary file of the full size
    // holding piece 1, and the state file saying so.
    std::string temporary(bytes.size(), '\0');
    temporary.replace(0, kPiece, bytes.substr(0, kPiece));
    putOnDevice("/Downloads/movie.bin.bak", temporary);
    putOnDevice("/Downloads/movie.bin.bak.json",
                "{\"version\":\"1\",\"path\":\"movie.bin.bak\",\"md5\":\"\",\"size\":" + std::to_string(bytes.size()) +
                    ",\"status\":0,\"fbs\":{\"1\":{\"status\":1,\"offset\":0,\"offset_length\":2097152},"
                    "\"2\":{\"status\":0,\"offset\":2097152,\"offset_length\":2097152},"
                    "\"3\":{\"status\":0,\"offset\":4194304,\"offset_length\":2097152},"
                    "\"4\":{\"status\":0,\"offset\":6291456,\"offset_length\":5}}}");
    auto result = zparent::pushFile(worker->link, ++nextTask, udid, local() / "movie.bin", {"/Downloads/", "", -1},
                                    quick());
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.skipped, static_cast<int64_t>(kPiece));
    EXPECT_EQ(result.transferred, static_cast<int64_t>(bytes.size() - kPiece));
    EXPECT_TRUE(readOnDevice("/Downloads/movie.bin") == bytes);
    EXPECT_FALSE(onDevice("/Downloads/movie.bin.bak"));
    EXPECT_FALSE(onDevice("/Downloads/movie.bin.bak.json"));
}

TEST_F(FileCommands, PushWithAStaleStateFileStartsAfresh) {
    const std::string bytes = patternBytes(kPiece + 9, 6);
    writeLocal(local() / "doc.bin", bytes);
    putOnDevice("/Downloads/doc.bin.bak", std::string(bytes.size(), 'x'));
    putOnDevice("/Downloads/doc.bin.bak.json", "this is not json");
    auto result = zparent::pushFile(worker->link, ++nextTask, udid, local() / "doc.bin", {"/Downloads/", "", -1}, quick());
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.skipped, 0);
    EXPECT_TRUE(readOnDevice("/Downloads/doc.bin") == bytes);
}

TEST_F(FileCommands, CancelledPushLeavesNothingOnTheDevice) {
    writeLocal(local() / "long.bin", patternBytes(6 * kPiece, 2));
    std::atomic<bool> stop{false};
    auto options = quick();
    options.interrupted = &stop;
    options.progress = [&](int64_t done, int64_t) {
        if (done >= static_cast<int64_t>(kPiece)) stop = true;
    };
    auto result = zparent::pushFile(worker->link, ++nextTask, udid, local() / "long.bin", {"/Downloads/", "", -1},
                                    options);
    EXPECT_FALSE(result.ok);
    EXPECT_TRUE(result.cancelled);
    // A piece still in flight finishes on its pool thread before the files go.
    for (int i = 0; i < 40 && (onDevice("/Downloads/long.bin.bak") || onDevice("/Downloads/long.bin.bak.json")); ++i)
        std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(onDevice("/Downloads/long.bin.bak"));
    EXPECT_FALSE(onDevice("/Downloads/long.bin.bak.json"));
    EXPECT_FALSE(onDevice("/Downloads/long.bin"));
}

TEST_F(FileCommands, PushPiecesThatDontFitAreIgnored) {
    const std::string bytes = patternBytes(kPiece + 3, 8);
    const uint64_t task = ++nextTask;
    std::string description = "{\"md5\":\"\",\"version\":\"1\",\"size\":" + std::to_string(bytes.size()) +
                              ",\"fbs\":{\"1\":{\"status\":0,\"offset\":0,\"offset_length\":2097152},"
                              "\"2\":{\"status\":0,\"offset\":2097152,\"offset_length\":3}}}";
    worker->link.sendCommand(task, 703,
                             "{\"uuid\":\"" + udid + "\",\"code\":0,\"stage\":1,\"info\":{\"name\":\"x.bin\",\"dir\":\"/Downloads/\"}}",
                             description);
    auto request = worker->waitFor([&](const Event& e) { return e.frame.taskId == task; });
    ASSERT_TRUE(request);
    EXPECT_EQ(request->stage, 2);
    EXPECT_EQ(request->tail, "{\"id\":1,\"offset_length\":2097152,\"offset\":0}");

    // Short bytes, a negative offset, a piece past the end: no answer.
    worker->link.send(pieceFrame(task, udid, 1, 0, kPiece, bytes.substr(0, 1000)));
    worker->link.send(pieceFrame(task, udid, 1, -4, kPiece, bytes.substr(0, 10)));
    worker->link.send(pieceFrame(task, udid, 2, 1 << 30, 3, "abc"));
    EXPECT_FALSE(worker->waitFor([&](const Event& e) { return e.frame.taskId == task; }, 1500ms));
    EXPECT_TRUE(onDevice("/Downloads/x.bin.bak"));

    // The real pieces finish it.
    worker->link.send(pieceFrame(task, udid, 1, 0, kPiece, bytes.substr(0, kPiece)));
    auto next = worker->waitFor([&](const Event& e) { return e.frame.taskId == task; });
    ASSERT_TRUE(next);
    EXPECT_EQ(next->tail, "{\"id\":2,\"offset_length\":3,\"offset\":2097152}");
    worker->link.send(pieceFrame(task, udid, 2, kPiece, 3, bytes.substr(kPiece)));
    auto done = worker->waitFor([&](const Event& e) { return e.frame.taskId == task; });
    ASSERT_TRUE(done);
    EXPECT_EQ(done->stage, 3);
    EXPECT_TRUE(readOnDevice("/Downloads/x.bin") == bytes);
}

TEST_F(FileCommands, PushRefusesNamesThatClimbOutOrNameNoFile) {
    writeLocal(local() / "evil.bin", "evil");
    auto options = quick();
    options.pieceTimeout = 1500ms;
    auto result = zparent::pushFile(worker->link, ++nextTask, udid, local() / "evil.bin", {"/Downloads/../../", "", -1},
                                    options);
    EXPECT_FALSE(result.ok);
    EXPECT_FALSE(fs::exists(fs::path(sim->folder) / "state" / "evil.bin"));
    EXPECT_FALSE(fs::exists(fs::path(sim->folder) / "state" / udid / "evil.bin"));

    // A name the device would cut at its NUL, and names of no file: bad
    // input, which an upload answers with silence, and nothing is written.
    const std::string description =
        "{\"md5\":\"\",\"version\":\"1\",\"size\":4,\"fbs\":{\"1\":{\"status\":0,\"offset\":0,\"offset_length\":4}}}";
    const uint64_t first = nextTask + 1;
    for (const char* name : {"x\\u0000y.txt", "/", "."})
        worker->link.sendCommand(++nextTask, 703,
                                 "{\"uuid\":\"" + udid + "\",\"code\":0,\"stage\":1,\"info\":{\"name\":\"" + name +
                                     "\",\"dir\":\"/Downloads/\"}}",
                                 description);
    EXPECT_FALSE(worker->waitFor([&](const Event& e) { return e.frame.taskId >= first; }, 1500ms));
    for (const char* path : {"/Downloads/x", "/Downloads/x.bak", "/Downloads/.bak", "/Downloads/..bak"})
        EXPECT_FALSE(onDevice(path)) << path;
}
