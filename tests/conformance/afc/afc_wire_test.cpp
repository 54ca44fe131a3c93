// The AFC service spoken to in raw packets: what libimobiledevice's client
// cannot provoke (packet numbers, malformed peers, stalls, escapes through
// links planted on the device side, reads larger than the answer buffer).
#include "services/afc_protocol.h"
#include "wire_harness.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace afc = zsim::afc;
using wiretest::ServiceRun;
using wiretest::TempDir;
namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<unsigned char>;

struct Answer {
    afc::Header header;
    Bytes fixed;
    Bytes payload;
    bool ok = false;
};

Bytes u64s(std::initializer_list<uint64_t> values) {
    Bytes out;
    for (uint64_t v : values) {
        unsigned char b[8];
        afc::storeLE64(b, v);
        out.insert(out.end(), b, b + 8);
    }
    return out;
}

Bytes& operator+=(Bytes& b, const std::string& s) {
    b.insert(b.end(), s.begin(), s.end());
    b.push_back(0);
    return b;
}

class RawAfc {
public:
    explicit RawAfc(ServiceRun& run) : run_(run) {}

    bool send(uint64_t op, const Bytes& fixed, const Bytes& payload = {}, uint64_t num = 0) {
        lastNum_ = num ? num : ++counter_;
        unsigned char header[afc::kHeaderSize];
        afc::encodeHeader(header, {afc::kHeaderSize + fixed.size() + payload.size(),
                                   afc::kHeaderSize + fixed.size(), lastNum_, op});
        return run_.sendAll(header, sizeof header) && run_.sendAll(fixed.data(), fixed.size()) &&
               run_.sendAll(payload.data(), payload.size());
    }

    Answer receive(int timeoutMs = 5000) {
        Answer a;
        unsigned char raw[afc::kHeaderSize];
        if (!run_.recvExact(raw, sizeof raw, timeoutMs) || !afc::decodeHeader(raw, a.header)) return a;
        a.fixed.resize(a.header.thisLength - afc::kHeaderSize);
        a.payload.resize(a.header.entireLength - a.header.thisLength);
        a.ok = run_.recvExact(a.fixed.data(), a.fixed.size()) &&
               run_.recvExact(a.payload.data(), a.payload.size());
        return a;
    }

    // Sends a request that is answered by a status; returns its code.
    uint64_t status(uint64_t op, const Bytes& fixed, const Bytes& payload = {}) {
        if (!send(op, fixed, payload)) return ~0ull;
        Answer a = receive();
        EXPECT_TRUE(a.ok);
        EXPECT_EQ(a.header.packetNum, lastNum_);
        if (!a.ok || a.header.operation != afc::kOpStatus || a.fixed.size() != 8) return ~1ull;
        return afc::loadLE64(a.fixed.data());
    }

    uint64_t open(const std::string& path, uint64_t mode, uint64_t* handle) {
        Bytes fixed = u64s({mode});
        fixed += path;
        send(afc::kOpFileOpen, fixed);
        Answer a = receive();
        if (a.header.operation == afc::kOpFileOpenResult && a.fixed.size() == 8) {
            *handle = afc::loadLE64(a.fixed.data());
            return afc::kSuccess;
        }
        return a.fixed.size() == 8 ? afc::loadLE64(a.fixed.data()) : ~1ull;
    }

    std::vector<std::string> strings(uint64_t op, const std::string& path) {
        Bytes fixed;
        if (op != afc::kOpDeviceInfo) fixed += path;
        send(op, fixed);
        Answer a = receive();
        std::vector<std::string> out;
        if (a.header.operation != afc::kOpData) return out;
        size_t start = 0;
        for (size_t i = 0; i < a.payload.size(); ++i)
            if (a.payload[i] == 0) {
                out.emplace_back(reinterpret_cast<const char*>(a.payload.data()) + start, i - start);
                start = i + 1;
            }
        return out;
    }

    uint64_t lastNum() const { return lastNum_; }

private:
    ServiceRun& run_;
    uint64_t counter_ = 0;
    uint64_t lastNum_ = 0;
};

// A device tree with a media partition inside it and a secret beside it.
class AfcWire : public ::testing::Test {
protected:
    void SetUp() override {
        media = tmp.path() / "device" / "Media";
        fs::create_directories(media / "DCIM" / "100APPLE");
        wiretest::writeFile(media / "DCIM" / "100APPLE" / "IMG_0001.JPG", "jpeg bytes");
        wiretest::writeFile(tmp.path() / "device" / "secret", "outside the media partition");
        ctx.mediaRoot = media;
        ctx.udid = "wire-test";
    }

    ServiceRun& start(const std::string& name = "com.apple.afc") {
        run = std::make_unique<ServiceRun>(name, ctx);
        return *run;
    }

    TempDir tmp;
    fs::path media;
    zsim::ServiceContext ctx;
    std::unique_ptr<ServiceRun> run;
};

TEST_F(AfcWire, HostPathsAndPlantedLinksNeverLeaveTheRoot) {
    fs::create_symlink("../secret", media / "up");
    fs::create_symlink("/DCIM/100APPLE/IMG_0001.JPG", media / "absolute");
    fs::create_symlink("DCIM/../../secret", media / "sneaky");
    fs::create_symlink("loop", media / "loop");
    RawAfc afc(start());
    uint64_t h = 0;

    Bytes climb;
    climb += "../../etc/passwd";
    EXPECT_EQ(afc.status(afc::kOpFileInfo, climb), afc::kPermDenied);
    EXPECT_EQ(afc.open("/../secret", 1, &h), afc::kPermDenied);
    EXPECT_EQ(afc.open("up", 1, &h), afc::kPermDenied);
    EXPECT_EQ(afc.open("sneaky", 1, &h), afc::kPermDenied);
    EXPECT_EQ(afc.open("up/x", 3, &h), afc::kPermDenied);
    EXPECT_NE(afc.open("loop", 1, &h), afc::kSuccess);
    EXPECT_TRUE(afc.strings(afc::kOpReadDir, "up").empty());
    Bytes mk;
    mk += "up/newdir";
    EXPECT_EQ(afc.status(afc::kOpMakeDir, mk), afc::kPermDenied);
    EXPECT_FALSE(fs::exists(tmp.path() / "newdir"));

    // The link itself is visible, with its text, without being followed.
    auto info = afc.strings(afc::kOpFileInfo, "up");
    ASSERT_GE(info.size(), 14u);
    EXPECT_EQ(info[7], "S_IFLNK");
    EXPECT_EQ(info[12], "LinkTarget");
    EXPECT_EQ(info[13], "../secret");

    // An absolute link target is a device path: it starts at the root.
    ASSERT_EQ(afc.open("/absolute", 1, &h), afc::kSuccess);
    afc.send(afc::kOpRead, u64s({h, 100}));
    Answer a = afc.receive();
    EXPECT_EQ(std::string(a.payload.begin(), a.payload.end()), "jpeg bytes");

    // ".." inside the root is fine; the root itself cannot be removed.
    ASSERT_EQ(afc.open("DCIM/100APPLE/../100APPLE/IMG_0001.JPG", 1, &h), afc::kSuccess);
    Bytes root;
    root += "/";
    EXPECT_EQ(afc.status(afc::kOpRemovePathAndContents, root), afc::kPermDenied);
    EXPECT_TRUE(fs::exists(media / "DCIM"));
    EXPECT_TRUE(fs::exists(tmp.path() / "device" / "secret"));
}

TEST_F(AfcWire, PacketNumbersAreEchoedAndBigReadsArriveWhole) {
    RawAfc afc(start());
    Bytes info;
    afc.send(afc::kOpDeviceInfo, info, {}, 0x1234567890ull);
    Answer a = afc.receive();
    EXPECT_EQ(a.header.packetNum, 0x1234567890ull);
    EXPECT_EQ(a.header.operation, afc::kOpData);

    // Bigger than the service's answer buffer: promised whole, streamed.
    const size_t size = (20u << 20) + 13;
    std::string content(size, '\0');
    for (size_t i = 0; i < size; ++i) content[i] = static_cast<char>((i * 131) >> 7);
    uint64_t h = 0;
    ASSERT_EQ(afc.open("big.bin", 3, &h), afc::kSuccess);
    Bytes fixed = u64s({h});
    EXPECT_EQ(afc.status(afc::kOpWrite, fixed, Bytes(content.begin(), content.end())), afc::kSuccess);
    EXPECT_EQ(afc.status(afc::kOpClose, fixed), afc::kSuccess);
    EXPECT_EQ(fs::file_size(media / "big.bin"), size);

    ASSERT_EQ(afc.open("big.bin", 1, &h), afc::kSuccess);
    EXPECT_EQ(afc.status(afc::kOpSeek, u64s({h, 0, 5})), afc::kSuccess);
    afc.send(afc::kOpRead, u64s({h, size}));
    a = afc.receive(20000);
    ASSERT_TRUE(a.ok);
    EXPECT_EQ(a.header.thisLength, afc::kHeaderSize);
    ASSERT_EQ(a.payload.size(), size - 5);
    EXPECT_EQ(std::memcmp(a.payload.data(), content.data() + 5, a.payload.size()), 0);
    // At the end a read answers an empty data packet.
    afc.send(afc::kOpRead, u64s({h, 4096}));
    a = afc.receive();
    EXPECT_EQ(a.header.operation, afc::kOpData);
    EXPECT_TRUE(a.payload.empty());
}

TEST_F(AfcWire, FailedWritesAndUnknownRequestsKeepTheStreamInStep) {
    RawAfc afc(start());
    Bytes junk(300000, 'x');
    EXPECT_EQ(afc.status(afc::kOpWrite, u64s({99}), junk), afc::kInvalidArg);
    uint64_t h = 0;
    ASSERT_EQ(afc.open("DCIM/100APPLE/IMG_0001.JPG", 1, &h), afc::kSuccess);
    EXPECT_NE(afc.status(afc::kOpWrite, u64s({h}), junk), afc::kSuccess);
    EXPECT_EQ(afc.status(0x16, {}, junk), afc::kUnsupported);
    EXPECT_EQ(afc.status(afc::kOpFileOpen, u64s({1})), afc::kInvalidArg);  // path missing
    EXPECT_EQ(afc.status(afc::kOpFileOpen, u64s({9, 0})), afc::kInvalidArg);
    EXPECT_EQ(afc.status(afc::kOpSeek, u64s({h, 7, 0})), afc::kInvalidArg);
    Bytes unterminated = {'a', 'b'};  // a path without its NUL is taken whole
    EXPECT_EQ(afc.status(afc::kOpFileInfo, unterminated), afc::kObjectNotFound);
    EXPECT_EQ(fs::file_size(media / "DCIM" / "100APPLE" / "IMG_0001.JPG"), 10u);
    EXPECT_EQ(afc.strings(afc::kOpReadDir, "/").size(), 3u);  // ".", "..", "DCIM"
}

TEST_F(AfcWire, APeerThatIsNotAfcIsDropped) {
    ServiceRun& r = start();
    const char garbage[40] = "GET / HTTP/1.1\r\n";
    ASSERT_TRUE(r.sendAll(garbage, sizeof garbage));
    EXPECT_TRUE(r.peerClosed());
}

TEST_F(AfcWire, StalledDeviceAnswersOnlyOnceReleased) {
    ServiceRun& r = start();
    RawAfc afc(r);
    r.stalled = true;
    ASSERT_TRUE(afc.send(afc::kOpDeviceInfo, {}));
    Answer a = afc.receive(300);
    EXPECT_FALSE(a.ok);
    r.stalled = false;
    a = afc.receive();
    EXPECT_TRUE(a.ok);
    EXPECT_EQ(a.header.packetNum, afc.lastNum());
}

TEST_F(AfcWire, ClosingDeviceEndsTheConnection) {
    ServiceRun& r = start();
    RawAfc afc(r);
    r.stalled = true;
    ASSERT_TRUE(afc.send(afc::kOpDeviceInfo, {}));
    r.closing = true;
    EXPECT_TRUE(r.peerClosed());
}

TEST_F(AfcWire, SystemServiceNeedsADeviceTree) {
    ServiceRun& r = start("com.apple.afc2");
    EXPECT_TRUE(r.peerClosed());

    ctx.systemRoot = tmp.path() / "device";
    RawAfc afc(start("com.apple.afc2"));
    auto names = afc.strings(afc::kOpReadDir, "/");
    EXPECT_EQ(names, (std::vector<std::string>{".", "..", "Media", "secret"}));
}

}  // namespace
