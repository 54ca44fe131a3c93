// Commands 1200-1201, 1400-1402 and 1500-1502 as a parent runs them.
#include "sim_harness.h"
#include "zeb_parent_commands.h"
#include "zeb_parent_contacts.h"
#include "zeb_parent_sync_data.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <set>

namespace fs = std::filesystem;

namespace {

constexpr char kBuiltin[] = "00008110-001A2B3C4D5E601E";
constexpr char kNoApps[] = "00008110-001A2B3C4D5E6000";  // accounts, no records
constexpr char kIphone4[] = "3b7d9f0e1c2a4b5d6e7f8091a2b3c4d5e6f70812";  // neither

struct Listing {
    zparent::PagedItems items;
    int64_t code = -1;
    size_t events = 0;
};

struct Change {
    int64_t code = -1;
    rapidjson::Document reply;
};

class SyncData : public ::testing::Test {
protected:
    void start(const std::vector<std::string>& profiles, const std::vector<std::string>& udids) {
        std::vector<std::string> arguments;
        for (const auto& profile : profiles) {
            arguments.push_back("--profile");
            arguments.push_back(e2e::profileDir(profile));
        }
        sim = std::make_unique<e2e::Simulator>(arguments);
        ASSERT_TRUE(sim->ready());
        worker = std::make_unique<e2e::Worker>(*sim);
        ASSERT_TRUE(worker->connected());
        for (const auto& udid : udids) ASSERT_TRUE(worker->waitForReady(udid).has_value()) << udid;
    }
    void TearDown() override {
        worker.reset();
        sim.reset();
    }

    Listing list(uint32_t command, const std::string& udid) {
        Listing listing;
        for (const auto& event : worker->run(command, e2e::commandJson(udid), std::nullopt, std::chrono::seconds(60))) {
            if (zparent::isFinalReport(event))
                listing.code = event.code;
            else if (zparent::addToPagedItems(listing.items, event, command))
                ++listing.events;
        }
        return listing;
    }

    Change change(uint32_t command, const std::string& udid, const std::string& tail) {
        Change outcome;
        for (const auto& event : worker->run(command, e2e::commandJson(udid), tail, std::chrono::seconds(60))) {
            if (zparent::isFinalReport(event))
                outcome.code = event.code;
            else if (event.stage == 0 && event.frame.packetStatus == 2)
                outcome.reply.Parse(event.tail.c_str(), event.tail.size());
        }
        return outcome;
    }

    std::unique_ptr<e2e::Simulator> sim;
    std::unique_ptr<e2e::Worker> worker;
};

const rapidjson::Value* findById(const rapidjson::Value& items, const std::string& id) {
    for (const auto& item : items.GetArray())
        if (item.HasMember("id") && id == item["id"].GetString()) return &item;
    return nullptr;
}

// A node anywhere in a bookmark tree.
const rapidjson::Value* findNode(const rapidjson::Value& node, const std::string& id) {
    if (id == node["id"].GetString()) return &node;
    for (const auto& child : node["children"].GetArray())
        if (const rapidjson::Value* found = findNode(child, id)) return found;
    return nullptr;
}

TEST_F(SyncData, EmptyDevicesCountZeroOrMinusOneByTheirAccounts) {
    start({"iphone13-ios17-noapps", "iphone4-ios4"}, {kNoApps, kIphone4});
    for (uint32_t command : {1200u, 1400u, 1500u}) {
        const Listing withAccount = list(command, kNoApps);
        EXPECT_EQ(withAccount.code, 0) << command;
        EXPECT_EQ(withAccount.items.count, -1) << command;
        const Listing without = list(command, kIphone4);
        EXPECT_EQ(without.items.count, 0) << command;
        EXPECT_EQ(without.items.items.Size(), 0u) << command;
    }
}

TEST_F(SyncData, CalendarsListLinkAddAndRemove) {
    start({"iphone13-ios17"}, {kBuiltin});
    const Listing before = list(1500, kBuiltin);
    ASSERT_EQ(before.code, 0);
    ASSERT_GT(before.items.count, 1);
    // An event named by two calendars stands in both.
    std::map<std::string, int> seen;
    for (const auto& calendar : before.items.items.GetArray())
        for (const auto& event : calendar["events"].GetArray()) ++seen[event["id"].GetString()];
    int shared = 0;
    for (const auto& [id, times] : seen) shared += times > 1;
    EXPECT_GT(shared, 0);

    const std::string proposed = zparent::newProposedId();
    const Change added = change(1501, kBuiltin,
                                zparent::calendarAddTail(proposed, "Team <Ops> & \"Co\"",
                                                         {{"Kick-off 🎉", "2025-01-06T09:00:00Z", "2025-01-06T10:00:00Z"},
                                                          {"Review", "2025-01-10T14:00:00Z", "2025-01-10T15:00:00Z"}}));
    ASSERT_EQ(added.code, 0);
    ASSERT_TRUE(added.reply.IsObject());
    ASSERT_TRUE(added.reply["com.apple.calendars.Calendar"].HasMember(proposed.c_str()));
    const std::string id = added.reply["com.apple.calendars.Calendar"][proposed.c_str()].GetString();
    EXPECT_EQ(added.reply["com.apple.calendars.Event"].MemberCount(), 2u);

    const Listing after = list(1500, kBuiltin);
    const rapidjson::Value* calendar = findById(after.items.items, id);
    ASSERT_NE(calendar, nullptr);
    EXPECT_STREQ((*calendar)["title"].GetString(), "Team <Ops> & \"Co\"");
    ASSERT_EQ((*calendar)["events"].Size(), 2u);
    std::set<std::string> starts;
    for (const auto& event : (*calendar)["events"].GetArray()) starts.insert(event["start_date_source"].GetString());
    EXPECT_EQ(starts, (std::set<std::string>{"2025-01-06T09:00:00Z", "2025-01-10T14:00:00Z"}));

    EXPECT_EQ(change(1502, kBuiltin, zparent::removeTail(id)).code, 0);
    EXPECT_EQ(findById(list(1500, kBuiltin).items.items, id), nullptr);
}

TEST_F(SyncData, BookmarksComeAsOneTreePerRootAndChange) {
    start({"iphone13-ios17"}, {kBuiltin});
    const Listing before = list(1400, kBuiltin);
    ASSERT_EQ(before.code, 0);
    ASSERT_GE(before.items.items.Size(), 2u);
    EXPECT_EQ(before.events, 1 + before.items.items.Size());  // the head, then a tree per root
    const std::string folder = before.items.items[0]["id"].GetString();

    const std::string proposed = zparent::newProposedId();
    const Change added = change(1401, kBuiltin,
                                zparent::bookmarkAddText(proposed, "Søk & <finn>", "https://example.no/?q=a&b", folder));
    ASSERT_EQ(added.code, 0);
    const Listing after = list(1400, kBuiltin);
    EXPECT_EQ(after.items.count, before.items.count + 1);
    const rapidjson::Value* root = findById(after.items.items, folder);
    ASSERT_NE(root, nullptr);
    std::string added_id;
    for (const auto& child : (*root)["children"].GetArray())
        if (std::string(child["name"].GetString()) == "Søk & <finn>") added_id = child["id"].GetString();
    ASSERT_FALSE(added_id.empty());
    EXPECT_STREQ(findNode(*root, added_id)->operator[]("url").GetString(), "https://example.no/?q=a&b");

    EXPECT_EQ(change(1402, kBuiltin, zparent::removeTail(added_id)).code, 0);
    EXPECT_EQ(list(1400, kBuiltin).items.count, before.items.count);
}

TEST_F(SyncData, NotesComeBackAsTheyWereWritten) {
    start({"iphone13-ios17"}, {kBuiltin});
    const Listing before = list(1200, kBuiltin);
    ASSERT_EQ(before.code, 0);
    bool withoutAuthor = false;
    for (const auto& note : before.items.items.GetArray()) {
        EXPECT_STREQ(note["guid"].GetString(), "");
        withoutAuthor |= std::string(note["author"].GetString()).empty();
    }
    EXPECT_TRUE(withoutAuthor);

    const std::string body = "Tom & <Jerry> \"quoted\" 🌞\n" + std::string(1 << 20, 'x');
    const std::string proposed = zparent::newProposedId();
    const Change added = change(1201, kBuiltin, zparent::noteAddTail(proposed, "Big & <bold> 🌞", body));
    ASSERT_EQ(added.code, 0);
    ASSERT_TRUE(added.reply.IsArray());
    ASSERT_EQ(added.reply.Size(), 1u);
    const auto& note = added.reply[0];
    EXPECT_STREQ(note["guid"].GetString(), proposed.c_str());
    const std::string id = note["id"].GetString();
    EXPECT_NE(id, proposed);

    const Listing after = list(1200, kBuiltin);
    const rapidjson::Value* listed = findById(after.items.items, id);
    ASSERT_NE(listed, nullptr);
    EXPECT_STREQ((*listed)["subject"].GetString(), "Big & <bold> 🌞");
    EXPECT_EQ(std::string((*listed)["content"].GetString()), body);
    EXPECT_EQ(after.items.count, before.items.count + 1);
}

TEST_F(SyncData, FortyFiveCalendarsComeInChunksOfTwenty) {
    start({"iphone13-ios17-calendars45"}, {"00008110-001A2B3C4D5E6045"});
    const Listing listing = list(1500, "00008110-001A2B3C4D5E6045");
    ASSERT_EQ(listing.code, 0);
    EXPECT_EQ(listing.items.count, 45);
    EXPECT_EQ(listing.items.chunks, 3u);
    EXPECT_EQ(listing.items.items.Size(), 45u);
}

TEST_F(SyncData, BadInputGetsItsCodeAndARefusedServiceIs13) {
    start({"iphone13-ios17"}, {kBuiltin});
    EXPECT_EQ(list(1500, "no-such-device").code, 7);
    EXPECT_EQ(change(1502, kBuiltin, "not json").code, 8);
    EXPECT_EQ(change(1402, kBuiltin, "{\"no\":\"id\"}").code, 21);
    // An add whose text is no property list reaches the device as nothing;
    // the command still ends with its one report.
    EXPECT_EQ(change(1401, kBuiltin, "this is not a property list").code, 0);
    const uint64_t taskId = worker->nextTaskId();
    ASSERT_TRUE(worker->link.sendCommand(taskId, 1500, "{\"uuid\":", std::nullopt));
    auto report = worker->waitFor([&](const zparent::Event& e) { return e.frame.taskId == taskId; });
    ASSERT_TRUE(report.has_value());
    EXPECT_EQ(report->code, 21);
    ASSERT_EQ(sim->control(std::string("refuse-service ") + kBuiltin + " com.apple.mobilesync on"), "ok");
    for (uint32_t command : {1200u, 1400u, 1500u}) EXPECT_EQ(list(command, kBuiltin).code, 13) << command;
}

}  // namespace
