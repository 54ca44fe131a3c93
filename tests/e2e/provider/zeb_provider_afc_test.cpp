#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <map>
#include <set>
#include <thread>
#include <vector>

#include "zeb_provider_world.h"

namespace {

// "com.apple.afc" on a device with a session, wrapped as an AFC connection.
class AfcOnDevice {
public:
    explicit AfcOnDevice(AMDeviceRef device) : session_(device) {
        auto& md = CMobileExportFun::GetInstance();
        if (!session_.ok()) return;
        if (md.AMDeviceSecureStartService(device, Key("com.apple.afc"), nullptr, &service_) != 0) return;
        if (md.AMDServiceConnectionGetSecureIOContext(service_) != nullptr) return;  // AFC is never encrypted
        md.AFCConnectionOpen(md.AMDServiceConnectionGetSocket(service_), 0, &afc_);
    }
    ~AfcOnDevice() {
        auto& md = CMobileExportFun::GetInstance();
        if (afc_) md.AFCConnectionClose(afc_);
        if (service_) md.AMDServiceConnectionInvalidate(service_);
    }
    AFCConnectionRef afc() const { return afc_; }

private:
    DeviceSession session_;
    AMDServiceConnectionRef service_ = nullptr;
    AFCConnectionRef afc_ = nullptr;
};

std::map<std::string, std::string> KeyValues(AFCKeyValueRef iterator) {
    auto& md = CMobileExportFun::GetInstance();
    std::map<std::string, std::string> out;
    char* key = nullptr;
    char* value = nullptr;
    while (md.AFCKeyValueRead(iterator, &key, &value) == 0 && key) out[key] = value;
    md.AFCKeyValueClose(iterator);
    return out;
}

std::map<std::string, std::string> FileInfo(AFCConnectionRef afc, const std::string& path, int32_t* result = nullptr) {
    AFCKeyValueRef iterator = nullptr;
    int32_t r = CMobileExportFun::GetInstance().AFCFileInfoOpen(afc, path.c_str(), &iterator);
    if (result) *result = r;
    return r == 0 ? KeyValues(iterator) : std::map<std::string, std::string>{};
}

std::set<std::string> List(AFCConnectionRef afc, const std::string& path) {
    auto& md = CMobileExportFun::GetInstance();
    std::set<std::string> names;
    AFCDirectoryRef dir = nullptr;
    if (md.AFCDirectoryOpen(afc, path.c_str(), &dir) != 0) return names;
    char* name = nullptr;
    while (md.AFCDirectoryRead(afc, dir, &name) == 0 && name) names.insert(name);
    md.AFCDirectoryClose(afc, dir);
    return names;
}

bool WriteFile(AFCConnectionRef afc, const std::string& path, const std::string& content) {
    auto& md = CMobileExportFun::GetInstance();
    AFCFileRef file = 0;
    if (md.AFCFileRefOpen(afc, path.c_str(), 2, &file) != 0) return false;
    bool ok = md.AFCFileRefWrite(afc, file, content.data(), static_cast<uint32_t>(content.size())) == 0;
    md.AFCFileRefClose(afc, file);
    return ok;
}

std::string ReadFile(AFCConnectionRef afc, const std::string& path, size_t limit = 1 << 20) {
    auto& md = CMobileExportFun::GetInstance();
    AFCFileRef file = 0;
    if (md.AFCFileRefOpen(afc, path.c_str(), 1, &file) != 0) return "<unopened>";
    std::string content(limit, '\0');
    uint32_t length = static_cast<uint32_t>(limit);
    int32_t r = md.AFCFileRefRead(afc, file, content.data(), &length);
    md.AFCFileRefClose(afc, file);
    if (r != 0) return "<unread>";
    content.resize(length);
    return content;
}

TEST(ProviderAfc, FilesAndDirectoriesOnTheMediaPartition) {
    auto& world = ProviderWorld::Get();
    auto& md = world.md();
    AfcOnDevice device(world.trustedIphone);
    AFCConnectionRef afc = device.afc();
    ASSERT_NE(afc, nullptr);

    AFCKeyValueRef info = nullptr;
    ASSERT_EQ(md.AFCDeviceInfoOpen(afc, &info), 0);
    auto fs = KeyValues(info);
    EXPECT_EQ(fs["Model"], "iPhone14,5");
    EXPECT_GT(std::stoll(fs["FSTotalBytes"]), std::stoll(fs["FSFreeBytes"]));

    md.AFCRemovePath(afc, "/ZebProviderTest/renamed.bin");
    md.AFCRemovePath(afc, "/ZebProviderTest");
    ASSERT_EQ(md.AFCDirectoryCreate(afc, "/ZebProviderTest"), 0);
    EXPECT_EQ(FileInfo(afc, "/ZebProviderTest")["st_ifmt"], "S_IFDIR");

    // Write, then read back at offsets.
    std::string content;
    for (int i = 0; i < 300000; ++i) content += static_cast<char>('A' + i % 26);
    ASSERT_TRUE(WriteFile(afc, "/ZebProviderTest/data.bin", content));
    EXPECT_EQ(ReadFile(afc, "/ZebProviderTest/data.bin"), content);
    auto attributes = FileInfo(afc, "/ZebProviderTest/data.bin");
    EXPECT_EQ(attributes["st_size"], "300000");
    EXPECT_EQ(attributes["st_ifmt"], "S_IFREG");
    EXPECT_TRUE(attributes.count("st_mtime") && attributes.count("st_birthtime"));
    EXPECT_EQ(List(afc, "/ZebProviderTest").count("data.bin"), 1u);

    AFCFileRef file = 0;
    ASSERT_EQ(md.AFCFileRefOpen(afc, "/ZebProviderTest/data.bin", 3, &file), 0);
    ASSERT_EQ(md.AFCFileRefSeek(afc, file, 100000, 0), 0);
    char piece[10];
    uint32_t length = sizeof piece;
    ASSERT_EQ(md.AFCFileRefRead(afc, file, piece, &length), 0);
    EXPECT_EQ(std::string(piece, length), content.substr(100000, 10));
    uint64_t position = 0;
    ASSERT_EQ(md.AFCFileRefTell(afc, file, &position), 0);
    EXPECT_EQ(position, 100010u);
    ASSERT_EQ(md.AFCFileRefSeek(afc, file, -10, 1), 0);  // back from the current position
    ASSERT_EQ(md.AFCFileRefWrite(afc, file, "0123456789", 10), 0);
    ASSERT_EQ(md.AFCFileRefSetFileSize(afc, file, 100010), 0);
    md.AFCFileRefClose(afc, file);
    EXPECT_EQ(ReadFile(afc, "/ZebProviderTest/data.bin"), content.substr(0, 100000) + "0123456789");

    // A read far larger than the file goes out as many requests at once; the
    // answers past the end are read through and the stream stays in step.
    ASSERT_EQ(md.AFCFileRefOpen(afc, "/ZebProviderTest/data.bin", 1, &file), 0);
    std::string whole(1 << 20, '\0');
    length = static_cast<uint32_t>(whole.size());
    ASSERT_EQ(md.AFCFileRefRead(afc, file, whole.data(), &length), 0);
    EXPECT_EQ(whole.substr(0, length), content.substr(0, 100000) + "0123456789");
    // So does a long write the device refuses piece after piece.
    EXPECT_NE(md.AFCFileRefWrite(afc, file, whole.data(), static_cast<uint32_t>(whole.size())), 0);
    ASSERT_EQ(md.AFCFileRefTell(afc, file, &position), 0);
    EXPECT_EQ(position, 100010u);
    md.AFCFileRefClose(afc, file);

    // Reading at the end gives 0 bytes.
    ASSERT_EQ(md.AFCFileRefOpen(afc, "/ZebProviderTest/data.bin", 1, &file), 0);
    ASSERT_EQ(md.AFCFileRefSeek(afc, file, 100010, 0), 0);
    length = sizeof piece;
    EXPECT_EQ(md.AFCFileRefRead(afc, file, piece, &length), 0);
    EXPECT_EQ(length, 0u);
    md.AFCFileRefClose(afc, file);

    ASSERT_EQ(md.AFCRenamePath(afc, "/ZebProviderTest/data.bin", "/ZebProviderTest/renamed.bin"), 0);
    EXPECT_EQ(List(afc, "/ZebProviderTest"), (std::set<std::string>{".", "..", "renamed.bin"}));
    EXPECT_EQ(md.AFCRemovePath(afc, "/ZebProviderTest/renamed.bin"), 0);
    int32_t result = 0;
    FileInfo(afc, "/ZebProviderTest/renamed.bin", &result);
    EXPECT_NE(result, 0) << "a removed file has no attributes";
    EXPECT_NE(md.AFCFileRefOpen(afc, "/ZebProviderTest/renamed.bin", 1, &file), 0);
    EXPECT_EQ(md.AFCRemovePath(afc, "/ZebProviderTest"), 0);
}

TEST(ProviderAfc, OneConnectionSharedByThreads) {
    auto& world = ProviderWorld::Get();
    AfcOnDevice device(world.trustedIphone);
    AFCConnectionRef afc = device.afc();
    ASSERT_NE(afc, nullptr);
    std::vector<std::future<bool>> workers;
    for (int t = 0; t < 4; ++t) {
        workers.push_back(std::async(std::launch::async, [afc, t] {
            bool ok = true;
            for (int round = 0; round < 10; ++round) {
                std::string path = "/zeb-thread-" + std::to_string(t) + ".txt";
                std::string text(1000 + round * 977 + t, static_cast<char>('a' + t));
                ok = ok && WriteFile(afc, path, text) && ReadFile(afc, path) == text;
            }
            return ok;
        }));
    }
    for (auto& w : workers) EXPECT_TRUE(w.get());
    for (int t = 0; t < 4; ++t)
        world.md().AFCRemovePath(afc, ("/zeb-thread-" + std::to_string(t) + ".txt").c_str());
}

TEST(ProviderAfc, DevicePulledOutInTheMiddleOfARead) {
    auto& world = ProviderWorld::Get();
    auto& md = world.md();
    std::string udid;
    AMDeviceRef device = world.Attach(ProviderWorld::Profile("ipad-air-ios15"), &udid);
    ASSERT_NE(device, nullptr);
    auto afcDevice = std::make_unique<AfcOnDevice>(device);
    AFCConnectionRef afc = afcDevice->afc();
    ASSERT_NE(afc, nullptr);
    std::string big(8 << 20, 'z');
    ASSERT_TRUE(WriteFile(afc, "/big.bin", big));

    AFCFileRef file = 0;
    ASSERT_EQ(md.AFCFileRefOpen(afc, "/big.bin", 1, &file), 0);
    // The device stops answering, so the read is certainly in flight when the
    // cable goes.
    ASSERT_EQ(world.sim.Control("stall " + udid + " on"), "ok");
    auto started = std::chrono::steady_clock::now();
    auto reading = std::async(std::launch::async, [&] {
        std::string buffer(big.size(), '\0');
        uint32_t length = static_cast<uint32_t>(buffer.size());
        int32_t r = md.AFCFileRefRead(afc, file, buffer.data(), &length);
        return std::make_pair(r, length);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ASSERT_TRUE(world.Detach(udid, device));
    auto [result, length] = reading.get();
    EXPECT_TRUE(result != 0 || length < big.size()) << "the read can't have finished";
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30));

    // Everything after fails cleanly, and nothing hangs.
    uint32_t more = 16;
    char buffer[16];
    EXPECT_NE(md.AFCFileRefRead(afc, file, buffer, &more), 0);
    EXPECT_EQ(md.AMDeviceCopyValue(device, nullptr, Key("DeviceName")), nullptr);
    AMDServiceConnectionRef service = nullptr;
    EXPECT_NE(md.AMDeviceSecureStartService(device, Key("com.apple.afc"), nullptr, &service), 0);
    EXPECT_NE(md.AMDeviceStartSession(device), 0);
    afcDevice.reset();  // closing on a gone device is safe
}

}  // namespace
