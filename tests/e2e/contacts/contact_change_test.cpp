// Commands 102 to 106: what a parent changes comes back from the device.
#include "contact_fixture.h"

#include <regex>

namespace {

const char kContact[] = "com.apple.contacts.Contact";
const char kPhone[] = "com.apple.contacts.Phone Number";
const char kDate[] = "com.apple.contacts.Date";

TEST_F(ContactCommands, AnAddedContactComesBackWithTheIdsTheDeviceGave) {
    startBuiltin();
    zparent::ContactDraft draft = zparent::draftFromName("Zoë \"Zed\" O'Neil & <Co>");
    draft.phones = {{"mobile", "+1 555 0100"}, {"home", "+1 555 0101"}};
    draft.dates = {{"anniversary", "2020-01-02T03:04:05Z"}};
    const std::string proposed = zparent::newProposedId();
    const ChangeOutcome added = change(102, kBuiltinUdid, zparent::contactAddTail(draft, proposed));
    ASSERT_TRUE(added.reported);
    ASSERT_EQ(added.code, 0);
    ASSERT_EQ(added.replies, 1u);
    ASSERT_TRUE(added.reply.IsObject());
    // Entities in the order they went out; each maps the parent's ids to the device's.
    std::vector<std::string> entities;
    for (const auto& member : added.reply.GetObject()) entities.emplace_back(member.name.GetString());
    EXPECT_EQ(entities, (std::vector<std::string>{kContact, kPhone, kDate}));
    ASSERT_TRUE(added.reply[kContact].HasMember(proposed.c_str()));
    const std::string deviceId = added.reply[kContact][proposed.c_str()].GetString();
    EXPECT_NE(deviceId, proposed);
    EXPECT_EQ(added.reply[kPhone].MemberCount(), 2u);

    const ContactListing listing = list(kBuiltinUdid);
    ASSERT_TRUE(listing.contacts.records.HasMember(deviceId.c_str()));
    const auto& contact = listing.contacts.records[deviceId.c_str()];
    EXPECT_STREQ(contact["first name"].GetString(), "Zoë \"Zed\" O'Neil &");
    EXPECT_STREQ(contact["last name"].GetString(), "<Co>");
    ASSERT_TRUE(contact.HasMember(kPhone));
    ASSERT_EQ(contact[kPhone].Size(), 2u);
    for (const auto& phone : contact[kPhone].GetArray()) {
        bool known = false;
        for (const auto& given : added.reply[kPhone].GetObject()) known |= given.value == phone["id"];
        EXPECT_TRUE(known) << phone["id"].GetString();
    }
    ASSERT_TRUE(contact.HasMember(kDate));
    EXPECT_TRUE(std::regex_match(std::string(contact[kDate][0]["value"].GetString()),
                                 std::regex("2020-01-0[12] [0-9]{2}:04:05")));
}

TEST_F(ContactCommands, AContactWithoutChildrenAndOddProposedIds) {
    startBuiltin();
    const ChangeOutcome plain = change(102, kBuiltinUdid, zparent::contactAddTail(zparent::draftFromName("Solo"), "NEW-1"));
    ASSERT_EQ(plain.code, 0);
    EXPECT_EQ(plain.reply.MemberCount(), 1u);
    EXPECT_TRUE(plain.reply[kContact].HasMember("NEW-1"));

    // A proposed id is a pattern: one that is no valid pattern, and one
    // with pattern characters, still give the contact its device id.
    for (const char* odd : {"X(Y", "A.B*"}) {
        zparent::ContactDraft draft = zparent::draftFromName(std::string("Odd ") + odd);
        draft.phones = {{"mobile", "1"}};
        const ChangeOutcome added = change(102, kBuiltinUdid, zparent::contactAddTail(draft, odd));
        ASSERT_EQ(added.code, 0) << odd;
        EXPECT_TRUE(added.reply[kContact].HasMember(odd)) << odd;
    }
}

TEST_F(ContactCommands, RemovingAContactOrANonexistentOneBothSucceed) {
    startBuiltin();
    const ContactListing before = list(kBuiltinUdid);
    ASSERT_GT(before.contacts.records.MemberCount(), 0u);
    const std::string victim = before.contacts.records.MemberBegin()->name.GetString();
    EXPECT_EQ(change(103, kBuiltinUdid, zparent::removeTail(victim)).code, 0);
    EXPECT_EQ(change(103, kBuiltinUdid, zparent::removeTail("no-such-record")).code, 0);
    const ContactListing after = list(kBuiltinUdid);
    EXPECT_FALSE(after.contacts.records.HasMember(victim.c_str()));
    EXPECT_EQ(after.contacts.count, before.contacts.count - 1);
}

TEST_F(ContactCommands, GroupsAreAddedChangedAndRemovedWithTheirNamesEscaped) {
    startBuiltin();
    const ContactListing before = list(kBuiltinUdid);
    ASSERT_GE(before.contacts.records.MemberCount(), 2u);
    auto contact = before.contacts.records.MemberBegin();
    const std::string first = contact->name.GetString();
    const std::string second = (++contact)->name.GetString();

    const std::string name = "Tom & Jerry <Fans> \"Zoë\"";
    const ChangeOutcome added = change(104, kBuiltinUdid, zparent::groupAddTail("g-new", name));
    ASSERT_EQ(added.code, 0);
    ASSERT_TRUE(added.reply.HasMember("g-new"));
    const auto& pair = added.reply["g-new"];
    ASSERT_EQ(pair.Size(), 2u);
    const std::string key = pair[0].GetString();
    EXPECT_STREQ(pair[1].GetString(), name.c_str());
    ASSERT_EQ(key.rfind("Group/", 0), 0u) << key;
    const std::string bare = key.substr(6);

    const std::string renamed = "Renamed & <again>";
    const ChangeOutcome changed = change(106, kBuiltinUdid, zparent::groupChangeTail(bare, bare, renamed, {first, second}));
    ASSERT_EQ(changed.code, 0);
    ASSERT_TRUE(changed.reply.HasMember(bare.c_str()));
    EXPECT_STREQ(changed.reply[bare.c_str()][0].GetString(), key.c_str());

    const ContactListing listing = list(kBuiltinUdid);
    ASSERT_TRUE(listing.groups.records.HasMember(key.c_str()));
    const auto& group = listing.groups.records[key.c_str()];
    EXPECT_STREQ(group["name"].GetString(), renamed.c_str());
    ASSERT_EQ(group["members"].Size(), 2u);
    EXPECT_STREQ(group["members"][0].GetString(), first.c_str());

    EXPECT_EQ(change(105, kBuiltinUdid, zparent::removeTail(key)).code, 0);
    EXPECT_FALSE(list(kBuiltinUdid).groups.records.HasMember(key.c_str()));
}

}  // namespace
