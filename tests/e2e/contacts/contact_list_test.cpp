// Command 100: the lists a parent gets, their counts and their chunks.
#include "contact_fixture.h"

#include <regex>
#include <set>

namespace {

size_t membersOf(const zparent::Event& event) {
    rapidjson::Document chunk;
    chunk.Parse(event.tail.c_str(), event.tail.size());
    return chunk.IsObject() ? chunk.MemberCount() : 0;
}

TEST_F(ContactCommands, EmptyDevicesCountZeroOrMinusOneByTheirAccount) {
    start({"iphone13-ios17-noapps", "iphone4-ios4"}, {kNoAppsUdid, kIphone4Udid});
    const ContactListing withAccount = list(kNoAppsUdid);
    ASSERT_TRUE(withAccount.reported);
    EXPECT_EQ(withAccount.code, 0);
    ASSERT_TRUE(withAccount.groups.headSeen && withAccount.contacts.headSeen);
    EXPECT_EQ(withAccount.groups.count, 0);  // groups never ask for the account
    EXPECT_EQ(withAccount.contacts.count, -1);
    EXPECT_EQ(withAccount.contacts.chunks + withAccount.groups.chunks, 0u);

    const ContactListing without = list(kIphone4Udid);
    EXPECT_EQ(without.code, 0);
    EXPECT_EQ(without.contacts.count, 0);
    EXPECT_EQ(without.groups.count, 0);
}

TEST_F(ContactCommands, ManyContactsComeInChunksOfAHundredAfterTheGroups) {
    start({"iphone13-ios17-contacts250"}, {kContacts250Udid});
    const ContactListing listing = list(kContacts250Udid);
    ASSERT_TRUE(listing.reported);
    EXPECT_EQ(listing.code, 0);
    EXPECT_EQ(listing.groups.count, 3);
    EXPECT_EQ(listing.groups.chunks, 1u);
    EXPECT_EQ(listing.contacts.count, 250);

    // The frames in order: the group head and chunk (101), then the contact
    // head and chunks (100), then the report.
    std::vector<std::pair<uint32_t, size_t>> frames;
    for (const auto& event : listing.events)
        if (!zparent::isFinalReport(event)) frames.emplace_back(event.frame.commandType, event.stage == 1 ? membersOf(event) : 0);
    const std::vector<std::pair<uint32_t, size_t>> expected{{101, 0}, {101, 3}, {100, 0}, {100, 100}, {100, 100}, {100, 50}};
    EXPECT_EQ(frames, expected);
    for (const auto& event : listing.events) {
        if (zparent::isFinalReport(event)) continue;
        EXPECT_EQ(event.info, event.frame.commandType == 101 ? "{\"Count\":3}" : "{\"Count\":250}");
    }

    // Every contact came with its child, and the groups name contacts that exist.
    size_t children = 0;
    for (const auto& contact : listing.contacts.records.GetObject())
        for (const auto& field : contact.value.GetObject())
            if (field.value.IsArray()) {
                for (const auto& child : field.value.GetArray()) EXPECT_TRUE(child.HasMember("id"));
                children += field.value.Size();
            }
    EXPECT_EQ(children, 250u);
    for (const auto& group : listing.groups.records.GetObject()) {
        ASSERT_TRUE(group.value.HasMember("members")) << group.name.GetString();
        for (const auto& member : group.value["members"].GetArray())
            EXPECT_TRUE(listing.contacts.records.HasMember(member.GetString())) << member.GetString();
    }
}

TEST_F(ContactCommands, DeviceDatesArriveInLocalTimeAndTextsUnchanged) {
    startBuiltin();
    const ContactListing listing = list(kBuiltinUdid);
    ASSERT_EQ(listing.code, 0);
    ASSERT_GT(listing.contacts.count, 0);
    const std::regex localTime("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}");
    size_t dates = 0, nonAscii = 0;
    std::set<std::string> childIds;
    for (const auto& contact : listing.contacts.records.GetObject()) {
        for (const auto& field : contact.value.GetObject()) {
            if (field.value.IsString()) {
                const std::string value = field.value.GetString();
                EXPECT_EQ(value.find('T') != std::string::npos && value.back() == 'Z' &&
                              std::regex_match(value.substr(0, 10), std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}")),
                          false)
                    << "a device date left in UTC form: " << value;
                if (std::string(field.name.GetString()) == "birthday") {
                    EXPECT_TRUE(std::regex_match(value, localTime)) << value;
                    ++dates;
                }
                for (unsigned char c : value) nonAscii += c >= 0x80;
            } else if (field.value.IsArray()) {
                for (const auto& child : field.value.GetArray()) {
                    EXPECT_TRUE(childIds.insert(child["id"].GetString()).second);
                    EXPECT_STREQ(child["com.apple.syncservices.RecordEntityName"].GetString(), field.name.GetString());
                }
            }
        }
    }
    EXPECT_GT(dates, 0u);
    EXPECT_GT(nonAscii, 0u);
    EXPECT_GT(childIds.size(), 0u);
    EXPECT_GT(listing.groups.count, 0);
}

}  // namespace
