// Command 501: the user apps in a head event and groups of ten, as the
// simulator's profile describes them.
#include "app_fixture.h"

#include <plist/plist.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

namespace {

struct ProfileApp {
    std::string name, shortVersion, version, artist, itemName, releaseDate;
    int64_t staticSize = 0, dynamicSize = 0;
    bool sideloaded = false;
};

std::string stringOf(plist_t dict, const char* key) {
    plist_t node = plist_dict_get_item(dict, key);
    char* text = nullptr;
    if (node && plist_get_node_type(node) == PLIST_STRING) plist_get_string_val(node, &text);
    std::string out = text ? text : "";
    free(text);
    return out;
}

int64_t integerOf(plist_t dict, const char* key) {
    plist_t node = plist_dict_get_item(dict, key);
    uint64_t value = 0;
    if (node && plist_get_node_type(node) == PLIST_UINT) plist_get_uint_val(node, &value);
    return static_cast<int64_t>(value);
}

std::map<std::string, ProfileApp> profileUserApps(const std::string& profile) {
    std::ifstream in(e2e::profileDir(profile) + "/profile.plist");
    std::stringstream text;
    text << in.rdbuf();
    const std::string xml = text.str();
    plist_t root = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &root);
    std::map<std::string, ProfileApp> apps;
    plist_t user = plist_dict_get_item(plist_dict_get_item(root, "Apps"), "User");
    for (uint32_t i = 0; user && i < plist_array_get_size(user); ++i) {
        plist_t app = plist_array_get_item(user, i);
        ProfileApp entry;
        entry.name = stringOf(app, "CFBundleDisplayName");
        entry.shortVersion = stringOf(app, "CFBundleShortVersionString");
        entry.version = stringOf(app, "CFBundleVersion");
        entry.staticSize = integerOf(app, "StaticDiskUsage");
        entry.dynamicSize = integerOf(app, "DynamicDiskUsage");
        plist_t sideloaded = plist_dict_get_item(app, "Sideloaded");
        uint8_t flag = 0;
        if (sideloaded) plist_get_bool_val(sideloaded, &flag);
        entry.sideloaded = flag != 0;
        if (plist_t store = plist_dict_get_item(app, "Store")) {
            entry.artist = stringOf(store, "artistName");
            entry.itemName = stringOf(store, "itemName");
            entry.releaseDate = stringOf(store, "releaseDate");
        }
        apps[stringOf(app, "CFBundleIdentifier")] = entry;
    }
    plist_free(root);
    return apps;
}

// "2016-03-14T07:00:00Z" in the zone the test runs the worker in (UTC+5:30).
std::string inTestZone(const std::string& utc) {
    tm when{};
    strptime(utc.c_str(), "%Y-%m-%dT%H:%M:%SZ", &when);
    time_t seconds = timegm(&when) + 5 * 3600 + 30 * 60;
    tm shifted{};
    gmtime_r(&seconds, &shifted);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &shifted);
    return text;
}

}  // namespace

TEST_F(AppCommands, ListGivesHeadThenGroupsOfTenWithProfileValues) {
    // The worker converts store dates into the zone it runs in.
    setenv("TZ", "Asia/Kolkata", 1);
    start(e2e::profileDir(kApps23), kApps23Udid);
    auto events = run(501, std::nullopt);
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events.back().code, 0);
    EXPECT_EQ(events.back().frame.packetStatus, 1);

    const auto& head = events.front();
    EXPECT_EQ(head.stage, 0);
    EXPECT_EQ(head.frame.packetStatus, 2);
    EXPECT_EQ(head.uuid, udid);
    EXPECT_EQ(parseJson(head.info)["Count"].GetInt(), 23);

    const auto profile = profileUserApps(kApps23);
    ASSERT_EQ(profile.size(), 23u);
    std::vector<size_t> groupSizes;
    std::map<std::string, int> seen;
    for (size_t i = 1; i + 1 < events.size(); ++i) {
        const auto& group = events[i];
        ASSERT_EQ(group.stage, 1);
        auto members = parseJson(group.tail);
        ASSERT_TRUE(members.IsObject()) << group.tail;
        groupSizes.push_back(members.MemberCount());
        for (const auto& member : members.GetObject()) {
            const std::string id = member.name.GetString();
            ++seen[id];
            auto expected = profile.find(id);
            ASSERT_NE(expected, profile.end()) << id;
            const auto& app = member.value;
            EXPECT_STREQ(app["CFBundleIdentifier"].GetString(), id.c_str());
            EXPECT_STREQ(app["ApplicationType"].GetString(), "User");
            EXPECT_EQ(app["CFBundleDisplayName"].GetString(), expected->second.name) << id;
            EXPECT_EQ(app["CFBundleShortVersionString"].GetString(), expected->second.shortVersion) << id;
            EXPECT_EQ(app["CFBundleVersion"].GetString(), expected->second.version) << id;
            EXPECT_TRUE(app.HasMember("Path")) << id;
            // Sizes come from the second Browse.
            EXPECT_EQ(app["app-size"].GetInt64(), expected->second.staticSize) << id;
            EXPECT_EQ(app["data-size"].GetInt64(), expected->second.dynamicSize) << id;
            if (expected->second.sideloaded) {
                EXPECT_FALSE(app.HasMember("artistName")) << id;
                EXPECT_FALSE(app.HasMember("AppleID")) << id;
                continue;
            }
            EXPECT_EQ(app["artistName"].GetString(), expected->second.artist) << id;
            EXPECT_EQ(app["itemName"].GetString(), expected->second.itemName) << id;
            EXPECT_EQ(app["releaseDate"].GetString(), inTestZone(expected->second.releaseDate)) << id;
            EXPECT_STREQ(app["AppleID"].GetString(), "zebrelo.tester@example.com") << id;
            EXPECT_TRUE(app.HasMember("softwareIcon57x57URL")) << id;
            EXPECT_EQ(std::string(app["purchaseDate"].GetString()).size(), 19u) << id;
        }
    }
    EXPECT_EQ(groupSizes, (std::vector<size_t>{10, 10, 3}));
    EXPECT_EQ(seen.size(), 23u);
    for (const auto& [id, count] : seen) EXPECT_EQ(count, 1) << id;
}

TEST_F(AppCommands, ListOfDeviceWithoutUserAppsIsHeadAlone) {
    start(e2e::profileDir(kNoApps), kNoAppsUdid);
    auto events = run(501, std::nullopt);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(parseJson(events[0].info)["Count"].GetInt(), 0);
    EXPECT_EQ(events[1].code, 0);
}

TEST_F(AppCommands, ListFailsCleanlyWhenTheProxyWillNotStart) {
    start(e2e::profileDir(kNoApps), kNoAppsUdid);
    ASSERT_EQ(sim->control("refuse-service " + udid + " com.apple.mobile.installation_proxy on"), "ok");
    auto events = run(501, std::nullopt);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].code, 14);
    // The service comes back and the same worker lists again.
    ASSERT_EQ(sim->control("refuse-service " + udid + " com.apple.mobile.installation_proxy off"), "ok");
    auto again = run(501, std::nullopt);
    ASSERT_EQ(again.size(), 2u);
    EXPECT_EQ(again.back().code, 0);
}

TEST_F(AppCommands, AListCutOffByTheDeviceGivesWhatArrivedAndCode2) {
    start(e2e::profileDir(kApps23), kApps23Udid);
    // Browse pages hold 20 apps: the first cut leaves one page of the list,
    // the second comes after the whole list, in the sizes' Browse.
    struct Cut {
        int after;
        const char* action;
        int apps;
    };
    for (const Cut& cut : {Cut{1, "break", 20}, Cut{2, "detach", 23}}) {
        ASSERT_EQ(sim->control("fault " + udid + " browse-page after " + std::to_string(cut.after) + " " + cut.action),
                  "ok");
        auto events = run(501, std::nullopt);
        ASSERT_GE(events.size(), 2u) << cut.action;
        EXPECT_EQ(events.back().code, 2) << cut.action;
        EXPECT_EQ(parseJson(events[0].info)["Count"].GetInt(), cut.apps) << cut.action;
        int listed = 0;
        for (size_t i = 1; i + 1 < events.size(); ++i) listed += parseJson(events[i].tail).MemberCount();
        EXPECT_EQ(listed, cut.apps) << cut.action;
    }
}
