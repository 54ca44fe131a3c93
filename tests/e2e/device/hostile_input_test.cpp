// What a hostile or broken parent sends: texts nested past any real one,
// tails that inflate without end, device ids that are no text or too long
// for a frame, a cancel ahead of its command. Each gets its code; the worker
// stays up and in step.
#include "sim_harness.h"

#include <rapidjson/document.h>

#include <gtest/gtest.h>

#include <zlib.h>

#include <fstream>
#include <string>

using namespace std::chrono_literals;
using e2e::Simulator;
using e2e::Worker;
using zparent::Event;

namespace {

struct Rig {
    Simulator sim{{"--profile", e2e::profileDir("iphone13-ios17")}};
    Worker worker{sim};
    std::string udid;
    Rig() {
        auto ready = worker.waitFor([](const Event& e) { return e.frame.commandType == 1; });
        if (ready) udid = ready->uuid;
    }
};

int64_t finalCode(const std::vector<Event>& events) { return events.empty() ? -1 : events.back().code; }

// A zlib stream of `size` blanks between `head` and `end`: a few hundred
// kilobytes that inflate to `size` bytes.
std::string inflatingTail(const std::string& head, size_t size, const std::string& end) {
    z_stream stream{};
    deflateInit(&stream, 1);
    std::string out;
    const std::string blanks(1 << 20, ' ');
    auto feed = [&](const std::string& in, int flush) {
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
        stream.avail_in = static_cast<uInt>(in.size());
        do {
            char buffer[1 << 16];
            stream.next_out = reinterpret_cast<Bytef*>(buffer);
            stream.avail_out = sizeof buffer;
            deflate(&stream, flush);
            out.append(buffer, sizeof buffer - stream.avail_out);
        } while (stream.avail_out == 0);
    };
    feed(head, Z_NO_FLUSH);
    for (size_t left = size; left > 0; left -= std::min(left, blanks.size()))
        feed(blanks.substr(0, std::min(left, blanks.size())), Z_NO_FLUSH);
    feed(end, Z_FINISH);
    deflateEnd(&stream);
    return out;
}

int64_t peakResidentKiB(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0) return std::stoll(line.substr(6));
    return -1;
}

// Sends a command whose raw zlib tail the caller built.
std::vector<Event> runWithRawTail(Worker& worker, uint32_t command, const std::string& json, const std::string& tail) {
    const uint64_t taskId = worker.nextTaskId();
    if (!worker.link.send(zparent::encodeCommandHead(taskId, command, json, tail.size()) + tail)) return {};
    std::vector<Event> events;
    while (auto event = worker.waitFor([&](const Event& e) { return e.frame.taskId == taskId; }, 60s)) {
        events.push_back(*event);
        if (zparent::isFinalReport(*event)) break;
    }
    return events;
}

TEST(HostileInput, TextsNestedPastTheBoundAreBadJsonInTheCommandAndInTheTail) {
    Rig rig;
    ASSERT_FALSE(rig.udid.empty());
    Worker& worker = rig.worker;

    const std::string deepArray = std::string(131640, '[') + std::string(131640, ']');
    EXPECT_EQ(finalCode(worker.run(300, deepArray)), 21);
    EXPECT_EQ(finalCode(worker.run(300, std::string(200000, '['))), 21);
    std::string deepObject;
    for (int i = 0; i < 75025; ++i) deepObject += "{\"a\":";
    deepObject += "1" + std::string(75025, '}');
    EXPECT_EQ(finalCode(worker.run(1602, deepObject)), 21) << "no device needed";

    const std::string deepTail = "{\"id\":" + deepArray + "}";
    EXPECT_EQ(finalCode(worker.run(1402, e2e::commandJson(rig.udid), deepTail)), 8);
    EXPECT_EQ(finalCode(worker.run(300, e2e::commandJson(rig.udid))), 0) << "the worker is up";
}

TEST(HostileInput, ATailInflatingPastTheBoundIsRefusedBeforeItsMemoryIsTaken) {
    Rig rig;
    ASSERT_FALSE(rig.udid.empty());
    Worker& worker = rig.worker;
    const int64_t before = peakResidentKiB(worker.link.workerPid());
    ASSERT_GT(before, 0);

    // Whole, these would be a valid bookmark change and a valid removal.
    const std::string huge = inflatingTail("<plist>", 1024u << 20, "</plist>");
    EXPECT_EQ(finalCode(runWithRawTail(worker, 1401, e2e::commandJson(rig.udid), huge)), 8);
    const std::string hugeJson = inflatingTail("{\"id\":\"1\"", 512u << 20, "}");
    EXPECT_EQ(finalCode(runWithRawTail(worker, 1402, e2e::commandJson(rig.udid), hugeJson)), 8);

    // Bounded buffers (and, under AddressSanitizer, its quarantine of freed
    // ones), far from the gigabyte the first inflates to.
    EXPECT_LT(peakResidentKiB(worker.link.workerPid()) - before, 600 * 1024);
}

TEST(HostileInput, DeviceIdsThatAreNoTextOrTooLongComeBackAsReportsThatParse) {
    Rig rig;
    ASSERT_FALSE(rig.udid.empty());
    Worker& worker = rig.worker;

    auto notUtf8 = worker.run(300, "{\"uuid\":\"\xff\xfe\x80" "abc\",\"code\":0}");
    ASSERT_FALSE(notUtf8.empty());
    EXPECT_EQ(notUtf8.back().code, 7);
    rapidjson::Document strict;
    strict.Parse<rapidjson::kParseValidateEncodingFlag>(notUtf8.back().envelope.c_str());
    EXPECT_FALSE(strict.HasParseError()) << notUtf8.back().envelope;
    EXPECT_EQ(notUtf8.back().uuid, "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd" "abc");

    // Repeated in a report, this id alone would pass the frame's 16-bit text
    // length; it is refused instead of cut.
    for (uint32_t command : {300u, 1602u}) {
        auto tooLong = worker.run(command, "{\"uuid\":\"" + std::string(65500, 'A') + "\",\"code\":0}");
        ASSERT_FALSE(tooLong.empty()) << command;
        EXPECT_EQ(tooLong.back().code, 21);
        EXPECT_EQ(tooLong.back().uuid, "");
    }
    EXPECT_EQ(finalCode(worker.run(300, e2e::commandJson(rig.udid))), 0) << "the link is still in step";
}

TEST(HostileInput, ACancelAheadOfItsCommandLeavesNoMarkForIt) {
    Rig rig;
    ASSERT_FALSE(rig.udid.empty());
    Worker& worker = rig.worker;

    ASSERT_TRUE(worker.link.sendCommand(5000, 600, e2e::commandJson(rig.udid, 77)));
    ASSERT_TRUE(worker.waitFor([](const Event& e) { return e.frame.taskId == 5000 && zparent::isFinalReport(e); }));
    ASSERT_TRUE(worker.link.sendCommand(77, 704, e2e::commandJson(rig.udid), std::string("{\"path\":\"/\"}")));
    auto listing = worker.waitFor([](const Event& e) { return e.frame.taskId == 77 && zparent::isFinalReport(e); });
    ASSERT_TRUE(listing) << "the listing was silenced by a cancel that came before it";
    EXPECT_EQ(listing->code, 0);
}

}  // namespace
