// The AFC service through libimobiledevice's own client, against a freshly
// started zebrelo-sim: the host the service has to satisfy.
#include "sim_process.h"

#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using Info = std::map<std::string, std::string>;

std::vector<std::string> takeList(char** list) {
    std::vector<std::string> out;
    for (char** p = list; p && *p; ++p) out.emplace_back(*p);
    if (list) afc_dictionary_free(list);
    return out;
}

Info takeInfo(char** list) {
    auto flat = takeList(list);
    Info out;
    for (size_t i = 0; i + 1 < flat.size(); i += 2) out[flat[i]] = flat[i + 1];
    return out;
}

// One device connection: lockdown handshake, then a service client.
class DeviceLink {
public:
    explicit DeviceLink(const char* udid = nullptr) {
        if (idevice_new_with_options(&device_, udid, IDEVICE_LOOKUP_USBMUX) != IDEVICE_E_SUCCESS) return;
        lockdownd_client_new_with_handshake(device_, &lockdown_, "afc_client_tests");
    }
    ~DeviceLink() {
        if (afc_) afc_client_free(afc_);
        if (lockdown_) lockdownd_client_free(lockdown_);
        if (device_) idevice_free(device_);
    }
    // Null when lockdown refuses the service or the connection fails.
    afc_client_t afc(const char* service = AFC_SERVICE_NAME) {
        if (!lockdown_) return nullptr;
        lockdownd_service_descriptor_t svc = nullptr;
        if (lockdownd_start_service(lockdown_, service, &svc) != LOCKDOWN_E_SUCCESS) return nullptr;
        afc_error_t err = afc_client_new(device_, svc, &afc_);
        lockdownd_service_descriptor_free(svc);
        return err == AFC_E_SUCCESS ? afc_ : nullptr;
    }

private:
    idevice_t device_ = nullptr;
    lockdownd_client_t lockdown_ = nullptr;
    afc_client_t afc_ = nullptr;
};

class AfcClient : public ::testing::Test {
protected:
    static void SetUpTestSuite() { sim = new simtest::SimProcess(); }
    static void TearDownTestSuite() {
        delete sim;
        sim = nullptr;
    }
    void SetUp() override {
        ASSERT_TRUE(sim->ready()) << sim->failure();
        link = std::make_unique<DeviceLink>();
        afc = link->afc();
        ASSERT_NE(afc, nullptr);
        // Each test works in its own folder of the shared device.
        dir = std::string("/zsim-") + ::testing::UnitTest::GetInstance()->current_test_info()->name();
        afc_remove_path_and_contents(afc, dir.c_str());
        ASSERT_EQ(afc_make_directory(afc, dir.c_str()), AFC_E_SUCCESS);
    }

    std::string at(const std::string& name) const { return dir + "/" + name; }

    void put(const std::string& path, const std::string& content) {
        uint64_t h = 0;
        ASSERT_EQ(afc_file_open(afc, path.c_str(), AFC_FOPEN_WRONLY, &h), AFC_E_SUCCESS);
        uint32_t written = 0;
        ASSERT_EQ(afc_file_write(afc, h, content.data(), content.size(), &written), AFC_E_SUCCESS);
        EXPECT_EQ(written, content.size());
        ASSERT_EQ(afc_file_close(afc, h), AFC_E_SUCCESS);
    }

    std::string get(const std::string& path) {
        uint64_t h = 0;
        if (afc_file_open(afc, path.c_str(), AFC_FOPEN_RDONLY, &h) != AFC_E_SUCCESS) return "<unopenable>";
        std::string out;
        char buf[4096];
        uint32_t got = 0;
        while (afc_file_read(afc, h, buf, sizeof buf, &got) == AFC_E_SUCCESS && got > 0) out.append(buf, got);
        afc_file_close(afc, h);
        return out;
    }

    Info info(const std::string& path, afc_error_t* err = nullptr) {
        char** list = nullptr;
        afc_error_t e = afc_get_file_info(afc, path.c_str(), &list);
        if (err) *err = e;
        return takeInfo(list);
    }

    static simtest::SimProcess* sim;
    std::unique_ptr<DeviceLink> link;
    afc_client_t afc = nullptr;
    std::string dir;
};

simtest::SimProcess* AfcClient::sim = nullptr;

TEST_F(AfcClient, DeviceInfoAndTheMediaPartitionListing) {
    char** raw = nullptr;
    ASSERT_EQ(afc_get_device_info(afc, &raw), AFC_E_SUCCESS);
    Info dev = takeInfo(raw);
    for (const char* key : {"Model", "FSTotalBytes", "FSFreeBytes", "FSBlockSize"}) EXPECT_FALSE(dev[key].empty()) << key;
    EXPECT_GT(std::stoull(dev["FSTotalBytes"]), std::stoull(dev["FSFreeBytes"]));
    char* model = nullptr;
    ASSERT_EQ(afc_get_device_info_key(afc, "Model", &model), AFC_E_SUCCESS);
    EXPECT_EQ(dev["Model"], model);
    free(model);

    char** list = nullptr;
    ASSERT_EQ(afc_read_directory(afc, "/", &list), AFC_E_SUCCESS);
    auto names = takeList(list);
    ASSERT_GE(names.size(), 3u);
    EXPECT_EQ(names[0], ".");
    EXPECT_EQ(names[1], "..");
    EXPECT_NE(std::find(names.begin(), names.end(), "DCIM"), names.end());
    EXPECT_NE(std::find(names.begin(), names.end(), dir.substr(1)), names.end());
    EXPECT_EQ(afc_read_directory(afc, "/no/such/folder", &(list = nullptr)), AFC_E_OBJECT_NOT_FOUND);
}

TEST_F(AfcClient, ReadWriteAtOffsetsTruncateAndStat) {
    uint64_t h = 0;
    ASSERT_EQ(afc_file_open(afc, at("notes.txt").c_str(), AFC_FOPEN_WR, &h), AFC_E_SUCCESS);
    uint32_t n = 0;
    ASSERT_EQ(afc_file_write(afc, h, "hello, device", 13, &n), AFC_E_SUCCESS);
    ASSERT_EQ(afc_file_seek(afc, h, 7, SEEK_SET), AFC_E_SUCCESS);
    ASSERT_EQ(afc_file_write(afc, h, "DEVICE", 6, &n), AFC_E_SUCCESS);
    uint64_t pos = 0;
    ASSERT_EQ(afc_file_tell(afc, h, &pos), AFC_E_SUCCESS);
    EXPECT_EQ(pos, 13u);
    ASSERT_EQ(afc_file_seek(afc, h, -6, SEEK_END), AFC_E_SUCCESS);
    char buf[32] = {};
    ASSERT_EQ(afc_file_read(afc, h, buf, 3, &n), AFC_E_SUCCESS);
    EXPECT_EQ(std::string(buf, n), "DEV");
    ASSERT_EQ(afc_file_seek(afc, h, 2, SEEK_CUR), AFC_E_SUCCESS);
    ASSERT_EQ(afc_file_read(afc, h, buf, sizeof buf, &n), AFC_E_SUCCESS);
    EXPECT_EQ(std::string(buf, n), "E");
    ASSERT_EQ(afc_file_truncate(afc, h, 5), AFC_E_SUCCESS);
    ASSERT_EQ(afc_file_close(afc, h), AFC_E_SUCCESS);
    EXPECT_EQ(get(at("notes.txt")), "hello");
    EXPECT_EQ(afc_file_close(afc, h), AFC_E_INVALID_ARG);  // already closed

    // Appending modes write at the end whatever the position.
    ASSERT_EQ(afc_file_open(afc, at("notes.txt").c_str(), AFC_FOPEN_RDAPPEND, &h), AFC_E_SUCCESS);
    ASSERT_EQ(afc_file_seek(afc, h, 0, SEEK_SET), AFC_E_SUCCESS);
    ASSERT_EQ(afc_file_write(afc, h, "!!", 2, &n), AFC_E_SUCCESS);
    afc_file_close(afc, h);
    ASSERT_EQ(afc_truncate(afc, at("notes.txt").c_str(), 6), AFC_E_SUCCESS);
    EXPECT_EQ(get(at("notes.txt")), "hello!");

    Info file = info(at("notes.txt"));
    EXPECT_EQ(file["st_size"], "6");
    EXPECT_EQ(file["st_ifmt"], "S_IFREG");
    EXPECT_EQ(file["st_nlink"], "1");
    EXPECT_FALSE(file["st_blocks"].empty());
    EXPECT_FALSE(file["st_birthtime"].empty());
    EXPECT_GT(file["st_mtime"].size(), 18u);  // nanoseconds since 1970
    const uint64_t mtime = 1500000000123456789ull;
    ASSERT_EQ(afc_set_file_time(afc, at("notes.txt").c_str(), mtime), AFC_E_SUCCESS);
    EXPECT_EQ(info(at("notes.txt"))["st_mtime"], std::to_string(mtime));
    EXPECT_EQ(info(dir)["st_ifmt"], "S_IFDIR");
}

TEST_F(AfcClient, MakeRenameAndRemove) {
    ASSERT_EQ(afc_make_directory(afc, at("a/b/c").c_str()), AFC_E_SUCCESS);  // parents too
    ASSERT_EQ(afc_make_directory(afc, at("a/b/c").c_str()), AFC_E_SUCCESS);  // already there
    put(at("a/b/c/file"), "x");
    EXPECT_EQ(afc_make_directory(afc, at("a/b/c/file").c_str()), AFC_E_OBJECT_EXISTS);
    EXPECT_EQ(afc_remove_path(afc, at("a").c_str()), AFC_E_DIR_NOT_EMPTY);
    ASSERT_EQ(afc_rename_path(afc, at("a/b/c/file").c_str(), at("moved").c_str()), AFC_E_SUCCESS);
    EXPECT_EQ(get(at("moved")), "x");
    EXPECT_EQ(afc_rename_path(afc, at("gone").c_str(), at("x").c_str()), AFC_E_OBJECT_NOT_FOUND);
    ASSERT_EQ(afc_remove_path(afc, at("a/b/c").c_str()), AFC_E_SUCCESS);
    ASSERT_EQ(afc_remove_path_and_contents(afc, at("a").c_str()), AFC_E_SUCCESS);
    afc_error_t err = AFC_E_SUCCESS;
    info(at("a"), &err);
    EXPECT_EQ(err, AFC_E_OBJECT_NOT_FOUND);
    ASSERT_EQ(afc_remove_path(afc, at("moved").c_str()), AFC_E_SUCCESS);
    EXPECT_EQ(afc_remove_path(afc, at("moved").c_str()), AFC_E_OBJECT_NOT_FOUND);

    uint64_t h = 0;
    EXPECT_EQ(afc_file_open(afc, at("missing").c_str(), AFC_FOPEN_RDONLY, &h), AFC_E_OBJECT_NOT_FOUND);
    EXPECT_EQ(afc_file_open(afc, dir.c_str(), AFC_FOPEN_RDONLY, &h), AFC_E_OBJECT_IS_DIR);
    EXPECT_EQ(afc_file_open(afc, at("no/parent").c_str(), AFC_FOPEN_WRONLY, &h), AFC_E_OBJECT_NOT_FOUND);
}

TEST_F(AfcClient, LinksAndEscapes) {
    put(at("target"), "linked");
    ASSERT_EQ(afc_make_link(afc, AFC_SYMLINK, "target", at("soft").c_str()), AFC_E_SUCCESS);
    ASSERT_EQ(afc_make_link(afc, AFC_HARDLINK, at("target").c_str(), at("hard").c_str()), AFC_E_SUCCESS);
    Info soft = info(at("soft"));
    EXPECT_EQ(soft["st_ifmt"], "S_IFLNK");
    EXPECT_EQ(soft["LinkTarget"], "target");
    EXPECT_EQ(get(at("soft")), "linked");
    EXPECT_EQ(info(at("hard"))["st_nlink"], "2");
    EXPECT_EQ(afc_make_link(afc, AFC_SYMLINK, "target", at("soft").c_str()), AFC_E_OBJECT_EXISTS);

    // Nothing outside the media partition is reachable.
    uint64_t h = 0;
    EXPECT_EQ(afc_file_open(afc, "../../etc/passwd", AFC_FOPEN_RDONLY, &h), AFC_E_PERM_DENIED);
    EXPECT_EQ(afc_file_open(afc, "/../../../../../../etc/passwd", AFC_FOPEN_RDONLY, &h), AFC_E_PERM_DENIED);
    ASSERT_EQ(afc_make_link(afc, AFC_SYMLINK, "../../../../../../../../etc/passwd", at("out").c_str()),
              AFC_E_SUCCESS);
    EXPECT_EQ(info(at("out"))["LinkTarget"], "../../../../../../../../etc/passwd");
    EXPECT_EQ(afc_file_open(afc, at("out").c_str(), AFC_FOPEN_RDONLY, &h), AFC_E_PERM_DENIED);
    EXPECT_EQ(afc_file_open(afc, at("out").c_str(), AFC_FOPEN_WRONLY, &h), AFC_E_PERM_DENIED);
    ASSERT_EQ(afc_make_link(afc, AFC_SYMLINK, "/etc/passwd", at("abs").c_str()), AFC_E_SUCCESS);
    EXPECT_EQ(afc_file_open(afc, at("abs").c_str(), AFC_FOPEN_RDONLY, &h), AFC_E_OBJECT_NOT_FOUND);
    EXPECT_EQ(afc_make_link(afc, AFC_HARDLINK, "../../etc/passwd", at("hardout").c_str()), AFC_E_PERM_DENIED);
}

TEST_F(AfcClient, SeveralFilesOpenAtOnce) {
    std::vector<uint64_t> handles;
    for (int i = 0; i < 4; ++i) {
        uint64_t h = 0;
        ASSERT_EQ(afc_file_open(afc, at("f" + std::to_string(i)).c_str(), AFC_FOPEN_WRONLY, &h), AFC_E_SUCCESS);
        handles.push_back(h);
    }
    for (int round = 0; round < 3; ++round)
        for (int i = 0; i < 4; ++i) {
            std::string piece = std::to_string(i) + ":" + std::to_string(round) + ";";
            uint32_t n = 0;
            ASSERT_EQ(afc_file_write(afc, handles[i], piece.data(), piece.size(), &n), AFC_E_SUCCESS);
        }
    for (uint64_t h : handles) ASSERT_EQ(afc_file_close(afc, h), AFC_E_SUCCESS);
    for (int i = 0; i < 4; ++i) {
        const std::string s = std::to_string(i);
        EXPECT_EQ(get(at("f" + s)), s + ":0;" + s + ":1;" + s + ":2;");
    }
}

TEST_F(AfcClient, BigTransfersRoundTrip) {
    std::string content(3 * 1024 * 1024 + 17, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 + (i >> 12));
    put(at("big"), content);
    EXPECT_EQ(info(at("big"))["st_size"], std::to_string(content.size()));
    uint64_t h = 0;
    ASSERT_EQ(afc_file_open(afc, at("big").c_str(), AFC_FOPEN_RDONLY, &h), AFC_E_SUCCESS);
    std::string back(content.size() + 100, '\0');
    uint32_t n = 0;
    ASSERT_EQ(afc_file_read(afc, h, back.data(), static_cast<uint32_t>(back.size()), &n), AFC_E_SUCCESS);
    afc_file_close(afc, h);
    back.resize(n);
    EXPECT_TRUE(back == content);
}

TEST(AfcSystemService, OnlyAJailbrokenDeviceServesItsWholeTree) {
    simtest::SimProcess sim({"--builtin", "--profile", ZEBRELO_PROFILES_DIR "/iphonex-ios14-jailbroken"});
    ASSERT_TRUE(sim.ready()) << sim.failure();
    char** udids = nullptr;
    int count = 0;
    ASSERT_EQ(idevice_get_device_list(&udids, &count), IDEVICE_E_SUCCESS);
    ASSERT_EQ(count, 2);
    int served = 0;
    for (int i = 0; i < count; ++i) {
        DeviceLink link(udids[i]);
        afc_client_t afc2 = link.afc("com.apple.afc2");
        if (!afc2) continue;
        ++served;
        char** list = nullptr;
        ASSERT_EQ(afc_read_directory(afc2, "/private/var/mobile/Media", &list), AFC_E_SUCCESS);
        auto names = takeList(list);
        EXPECT_NE(std::find(names.begin(), names.end(), "DCIM"), names.end());
        uint64_t h = 0;
        EXPECT_EQ(afc_file_open(afc2, "/../../etc/hostname", AFC_FOPEN_RDONLY, &h), AFC_E_PERM_DENIED);
    }
    idevice_device_list_free(udids);
    EXPECT_EQ(served, 1);
}

}  // namespace
