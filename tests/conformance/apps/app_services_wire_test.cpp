// The app services driven over a socket pair in their raw wire form: what
// the stock tools cannot show (page layout, paths that leave the media
// partition, persistence, relays to other connections, bad frames).
#include "core/plist_util.h"
#include "plist_frames.h"

#include <gtest/gtest.h>
#include <zip.h>

#include <filesystem>
#include <map>

using namespace wiretest;
namespace fs = std::filesystem;

namespace {

const char* kProfile = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
  <key>Values</key><dict><key>ProductVersion</key><string>17.5.1</string></dict>
  <key>Apps</key><dict>
    <key>User</key><array>
      <dict><key>CFBundleIdentifier</key><string>com.example.first</string>
            <key>CFBundleDisplayName</key><string>First &amp; Best</string>
            <key>Store</key><dict><key>artistName</key><string>Example Makers</string></dict></dict>
    </array>
    <key>Generate</key><dict><key>Count</key><integer>44</integer></dict>
    <key>System</key><array>
      <dict><key>CFBundleIdentifier</key><string>com.apple.mobilesafari</string>
            <key>CFBundleExecutable</key><string>MobileSafari</string></dict>
    </array>
  </dict>
</dict></plist>)";

void writeZip(const fs::path& file, const std::map<std::string, std::string>& entries) {
    zipFile zip = zipOpen64(file.c_str(), APPEND_STATUS_CREATE);
    ASSERT_NE(zip, nullptr);
    for (const auto& [name, data] : entries) {
        zip_fileinfo info{};
        ASSERT_EQ(zipOpenNewFileInZip64(zip, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED,
                                        Z_DEFAULT_COMPRESSION, 0),
                  ZIP_OK);
        if (!data.empty()) zipWriteInFileInZip(zip, data.data(), static_cast<unsigned>(data.size()));
        zipCloseFileInZip(zip);
    }
    zipClose(zip, nullptr);
}

std::string infoPlist(const std::string& id, const std::string& version) {
    return "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + id +
           "</string><key>CFBundleExecutable</key><string>Demo</string><key>CFBundleVersion</key><string>" +
           version + "</string></dict></plist>";
}

plist_t command(const char* name) {
    plist_t c = plist_new_dict();
    plist_dict_set_item(c, "Command", plist_new_string(name));
    return c;
}

class AppServicesWire : public ::testing::Test {
protected:
    void SetUp() override {
        profile = dictFromXml(kProfile);
        ASSERT_NE(profile, nullptr);
        ctx.profile = profile;
        ctx.udid = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        ctx.mediaRoot = dir.path() / "media";
        ctx.stateDir = dir.path() / "state";
        fs::create_directories(ctx.mediaRoot / "PublicStaging");
        fs::create_directories(ctx.stateDir);
    }
    void TearDown() override { plist_free(profile); }

    std::unique_ptr<ServiceRun> open(const char* service) { return std::make_unique<ServiceRun>(service, ctx); }

    // Sends a command and collects every answer up to the last one.
    std::vector<plist_t> exchange(ServiceRun& run, plist_t request) {
        EXPECT_TRUE(sendPlist(run, request, Endian::Big, false));
        plist_free(request);
        std::vector<plist_t> out;
        while (plist_t m = receivePlist(run, Endian::Big)) {
            out.push_back(m);
            if (plist_dict_get_item(m, "Error") || stringAt(m, "Status") == "Complete") break;
        }
        return out;
    }

    std::vector<plist_t> install(ServiceRun& run, const std::string& path) {
        plist_t c = command("Install");
        plist_dict_set_item(c, "PackagePath", plist_new_string(path.c_str()));
        return exchange(run, c);
    }

    static void release(std::vector<plist_t>& messages) {
        for (plist_t m : messages) plist_free(m);
        messages.clear();
    }

    TempDir dir;
    plist_t profile = nullptr;
    zsim::ServiceContext ctx;
};

TEST_F(AppServicesWire, BrowseAnswersInPagesThatAddUp) {
    auto run = open("com.apple.mobile.installation_proxy");
    plist_t c = command("Browse");
    plist_t options = plist_new_dict();
    plist_dict_set_item(options, "ApplicationType", plist_new_string("User"));
    plist_dict_set_item(c, "ClientOptions", options);
    auto messages = exchange(*run, c);
    ASSERT_EQ(messages.size(), 4u);  // 45 user apps: 20, 20, 5, then Complete
    uint64_t expectedIndex = 0;
    for (size_t i = 0; i + 1 < messages.size(); ++i) {
        plist_t page = messages[i];
        EXPECT_EQ(stringAt(page, "Status"), "BrowsingApplications");
        EXPECT_EQ(uintAt(page, "CurrentIndex"), expectedIndex);
        EXPECT_EQ(uintAt(page, "Total"), 45u);
        plist_t list = plist_dict_get_item(page, "CurrentList");
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(uintAt(page, "CurrentAmount"), plist_array_get_size(list));
        expectedIndex += plist_array_get_size(list);
    }
    EXPECT_EQ(expectedIndex, 45u);
    EXPECT_EQ(stringAt(messages.back(), "Status"), "Complete");
    plist_t first = plist_array_get_item(plist_dict_get_item(messages[0], "CurrentList"), 0);
    EXPECT_EQ(stringAt(first, "CFBundleDisplayName"), "First & Best");
    // The store metadata is an iTunesMetadata.plist with the profile's artist on top.
    char* data = nullptr;
    uint64_t size = 0;
    plist_get_data_val(plist_dict_get_item(first, "iTunesMetadata"), &data, &size);
    plist_t metadata = nullptr;
    plist_from_memory(data, static_cast<uint32_t>(size), &metadata);
    free(data);
    ASSERT_NE(metadata, nullptr);
    EXPECT_EQ(stringAt(metadata, "artistName"), "Example Makers");
    EXPECT_EQ(stringAt(metadata, "softwareVersionBundleId"), "com.example.first");
    EXPECT_NE(plist_dict_get_item(metadata, "com.apple.iTunesStore.downloadInfo"), nullptr);
    EXPECT_FALSE(stringAt(metadata, "softwareIcon57x57URL").empty());
    plist_free(metadata);
    release(messages);
}

TEST_F(AppServicesWire, InstallPersistsAndRelaysToObservers) {
    writeZip(ctx.mediaRoot / "PublicStaging/demo", {{"Payload/Demo.app/Info.plist", infoPlist("com.example.demo", "3")},
                                                    {"Payload/Demo.app/Demo", std::string(10000, 'x')}});
    auto observer = open("com.apple.mobile.notification_proxy");
    plist_t observe = command("ObserveNotification");
    plist_dict_set_item(observe, "Name", plist_new_string("com.apple.mobile.application_installed"));
    ASSERT_TRUE(sendPlist(*observer, observe, Endian::Big, false));
    plist_free(observe);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));

    auto proxy = open("com.apple.mobile.installation_proxy");
    // Hosts give the path with or without the partition's location in front.
    auto messages = install(*proxy, "/var/mobile/Media/PublicStaging/demo");
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(stringAt(messages.back(), "Status"), "Complete");
    for (size_t i = 0; i + 1 < messages.size(); ++i) {
        EXPECT_FALSE(stringAt(messages[i], "Status").empty());
        if (i > 0) {
            EXPECT_GE(uintAt(messages[i], "PercentComplete"), uintAt(messages[i - 1], "PercentComplete"));
        }
    }
    release(messages);

    plist_t relay = receivePlist(*observer, Endian::Big);
    ASSERT_NE(relay, nullptr);
    EXPECT_EQ(stringAt(relay, "Command"), "RelayNotification");
    EXPECT_EQ(stringAt(relay, "Name"), "com.apple.mobile.application_installed");
    plist_free(relay);
    plist_t shutdown = command("Shutdown");
    ASSERT_TRUE(sendPlist(*observer, shutdown, Endian::Big, false));
    plist_free(shutdown);
    plist_t death = receivePlist(*observer, Endian::Big);
    ASSERT_NE(death, nullptr);
    EXPECT_EQ(stringAt(death, "Command"), "ProxyDeath");
    plist_free(death);

    // The registry reads apps.plist back: what was installed is there with
    // the sizes of its payload.
    zsim::PlistPtr savedFile = zsim::readPlistFile(ctx.stateDir / "apps.plist");
    plist_t saved = savedFile.get();
    ASSERT_NE(saved, nullptr);
    plist_t apps = plist_dict_get_item(saved, "Apps");
    bool found = false;
    for (uint32_t i = 0; i < plist_array_get_size(apps); ++i) {
        plist_t app = plist_array_get_item(apps, i);
        if (stringAt(app, "CFBundleIdentifier") != "com.example.demo") continue;
        found = true;
        EXPECT_EQ(stringAt(app, "CFBundleVersion"), "3");
        EXPECT_GE(uintAt(app, "StaticDiskUsage"), 10000u);
    }
    EXPECT_TRUE(found);
}

TEST_F(AppServicesWire, PackagesOutsideTheMediaPartitionAreNotRead) {
    writeZip(dir.path() / "outside.ipa", {{"Payload/Demo.app/Info.plist", infoPlist("com.example.outside", "1")}});
    fs::create_symlink(dir.path() / "outside.ipa", ctx.mediaRoot / "PublicStaging/link");
    auto proxy = open("com.apple.mobile.installation_proxy");
    for (const char* path : {"../outside.ipa", "PublicStaging/../../outside.ipa", "PublicStaging/link"}) {
        auto messages = install(*proxy, path);
        ASSERT_FALSE(messages.empty()) << path;
        EXPECT_EQ(stringAt(messages.back(), "Error"), "PackageExtractionFailed") << path;
        release(messages);
    }
    plist_t c = command("Install");
    auto messages = exchange(*proxy, c);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(stringAt(messages[0], "Error"), "MissingPackagePath");
    release(messages);
}

TEST_F(AppServicesWire, BundleProblemsStopAtInspection) {
    struct Case {
        std::map<std::string, std::string> entries;
        const char* error;
    } cases[] = {
        {{{"Payload/Demo.app/Info.plist", "not a plist at all"}}, "PackageInspectionFailed"},
        {{{"Payload/Demo.app/Info.plist", infoPlist("../escape", "1")}}, "PackageInspectionFailed"},
        {{{"Payload/.hidden.app/Info.plist", infoPlist("com.example.hidden", "1")}}, "PackageInspectionFailed"},
        {{{"Payload/Demo.app/Info.plist",
           "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>a.b</string></dict></plist>"}},
         "MissingBundleVersion"},
    };
    auto proxy = open("com.apple.mobile.installation_proxy");
    int n = 0;
    for (auto& c : cases) {
        const std::string name = "PublicStaging/case" + std::to_string(n++);
        writeZip(ctx.mediaRoot / name, c.entries);
        auto messages = install(*proxy, name);
        ASSERT_GE(messages.size(), 2u) << name;
        EXPECT_EQ(stringAt(messages.back(), "Error"), c.error) << name;
        EXPECT_FALSE(stringAt(messages.back(), "ErrorDescription").empty());
        EXPECT_EQ(stringAt(messages[messages.size() - 2], "Status"), "InspectingPackage") << name;
        release(messages);
    }
}

TEST_F(AppServicesWire, SpringboardAnswersInTheHostsForm) {
    auto run = open("com.apple.springboardservices");
    plist_t request = plist_new_dict();
    plist_dict_set_item(request, "command", plist_new_string("getIconState"));
    ASSERT_TRUE(sendPlist(*run, request, Endian::Big, true));
    plist_free(request);
    bool binary = false;
    plist_t state = receivePlist(*run, Endian::Big, 3000, &binary);
    ASSERT_NE(state, nullptr);
    EXPECT_TRUE(binary);
    ASSERT_EQ(plist_get_node_type(state), PLIST_ARRAY);
    // Dock first: the system app leads it.
    plist_t dock = plist_array_get_item(state, 0);
    EXPECT_EQ(stringAt(plist_array_get_item(dock, 0), "bundleIdentifier"), "com.apple.mobilesafari");
    plist_free(state);
}

TEST_F(AppServicesWire, GarbageEndsTheConnection) {
    for (const char* service : {"com.apple.mobile.installation_proxy", "com.apple.springboardservices",
                                "com.apple.mobile.notification_proxy"}) {
        auto run = open(service);
        const unsigned char frame[] = {0, 0, 0, 9, 'n', 'o', 't', ' ', 'p', 'l', 'i', 's', 't'};
        ASSERT_TRUE(run->sendAll(frame, sizeof frame));
        EXPECT_TRUE(run->peerClosed()) << service;
    }
    auto run = open("com.apple.mobile.installation_proxy");
    const unsigned char huge[] = {0x7F, 0xFF, 0xFF, 0xFF};
    ASSERT_TRUE(run->sendAll(huge, sizeof huge));
    EXPECT_TRUE(run->peerClosed());
}

}  // namespace
