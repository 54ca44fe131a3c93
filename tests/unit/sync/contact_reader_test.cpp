// The contact record reader on batches as a device sends them.
#include "zeb_bound_provider.h"
#include "zeb_contact_reader.h"
#include "zeb_sync_matchers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {

std::string record(const std::string& id, const std::string& entity, const std::string& fields) {
    return "<key>" + id + "</key><dict><key>com.apple.syncservices.RecordEntityName</key><string>" + entity +
           "</string>" + fields + "</dict>";
}

std::string owners(std::initializer_list<const char*> ids) {
    std::string text = "<key>contact</key><array>";
    for (const char* id : ids) text += std::string("<string>") + id + "</string>";
    return text + "</array>";
}

// Reads one batch in the given mode; the handler's result.
uint8_t feed(ChangeReplyContext& reply, const std::string& records, int32_t mode = kContactFirstBatch) {
    const std::string xml = Plist("<array><string>SDMessageProcessChanges</string><string>com.apple.Contacts</string>"
                                  "<dict>" + records + "</dict><true/></array>");
    reply.mode = mode;
    bool keepWaiting = true;
    uint8_t result = 0;
    ContactReplyHandler(&reply, reinterpret_cast<const uint8_t*>(xml.data()), static_cast<uint32_t>(xml.size()),
                        &keepWaiting, &result);
    EXPECT_FALSE(keepWaiting);
    return result;
}

class ContactReader : public ::testing::Test {
protected:
    void SetUp() override {
        BoundProvider();
        setenv("TZ", "Asia/Tokyo", 1);
        tzset();
    }
    void TearDown() override {
        unsetenv("TZ");
        tzset();
    }
    ChangeReplyContext reply_;
};

TEST_F(ContactReader, ChildrenJoinTheirContactsAndLateOwnersLoseThem) {
    const std::string phone = "com.apple.contacts.Phone Number";
    // A child in a batch ahead of its contact's is lost; one that sorts
    // ahead of its contact in the same batch is not.
    feed(reply_, record("3/2/0", phone, owners({"2"}) + "<key>value</key><string>100</string>"));
    feed(reply_, record("2", "com.apple.contacts.Contact", "<key>first name</key><string>Bo</string>") +
                     record("12/2/0", "com.apple.contacts.Date", owners({"2"}) + "<key>type</key><string>x</string>"),
         kContactFurtherBatch);
    EXPECT_TRUE(reply_.contacts.HasMember("2"));
    EXPECT_FALSE(reply_.contacts["2"].HasMember(phone.c_str()));
    EXPECT_EQ(reply_.contacts["2"]["com.apple.contacts.Date"].Size(), 1u);

    feed(reply_, record("1", "com.apple.contacts.Contact", "<key>first name</key><string>Ann</string>"));
    const uint8_t more = feed(reply_,
                              record("3/1/0", phone, owners({"1"}) + "<key>value</key><string>111</string>") +
                                  record("3/1/1", phone, owners({"1", "2", "404"}) + "<key>value</key><string>222</string>") +
                                  record("9/1/0", "com.apple.contacts.Date",
                                         owners({"1"}) + "<key>value</key><date>2020-01-02T03:04:05Z</date>"),
                              kContactFurtherBatch);
    EXPECT_EQ(more, 1);  // the message holds "SDMessageProcessChanges"

    const auto& ann = reply_.contacts["1"];
    ASSERT_EQ(ann[phone.c_str()].Size(), 2u);
    EXPECT_STREQ(ann[phone.c_str()][0]["id"].GetString(), "3/1/0");
    EXPECT_STREQ(ann[phone.c_str()][1]["value"].GetString(), "222");
    // A child of two owners stands under both.
    ASSERT_EQ(reply_.contacts["2"][phone.c_str()].Size(), 1u);
    EXPECT_STREQ(reply_.contacts["2"][phone.c_str()][0]["id"].GetString(), "3/1/1");
    // The date rule reaches children, in the machine's zone (Tokyo, UTC+9).
    EXPECT_STREQ(ann["com.apple.contacts.Date"][0]["value"].GetString(), "2020-01-02 12:04:05");
    EXPECT_EQ(reply_.contacts.MemberCount(), 2u);
}

TEST_F(ContactReader, FieldsOfContactsAndGroupsFollowTheirOwnRules) {
    feed(reply_, record("7", "com.apple.contacts.Contact",
                        "<key>birthday</key><date>1985-04-12T12:00:00Z</date>"
                        "<key>notes</key><string>2020-01-02T03:04:05Z!</string>"
                        "<key>rank</key><integer>42</integer><key>vip</key><true/>"
                        "<key>last name</key><string>&lt;Smith &amp; Söhne&gt;</string>") +
                     record("Group/1", "com.apple.contacts.Group",
                            "<key>name</key><string>2020-01-02T03:04:05Z</string>"
                            "<key>people</key><array><string>7</string><integer>3</integer></array>") +
                     record("Group/2", "com.apple.contacts.Group", "<key>name</key><string>Empty</string>") +
                     "<key>8</key><dict><key>first name</key><string>no entity</string></dict>");
    const auto& person = reply_.contacts["7"];
    EXPECT_STREQ(person["birthday"].GetString(), "1985-04-12 21:00:00");
    EXPECT_STREQ(person["notes"].GetString(), "2020-01-02T03:04:05Z!");
    EXPECT_STREQ(person["rank"].GetString(), "42");
    EXPECT_STREQ(person["last name"].GetString(), "<Smith & Söhne>");
    EXPECT_STREQ(person["com.apple.syncservices.RecordEntityName"].GetString(), "com.apple.contacts.Contact");
    EXPECT_FALSE(reply_.contacts.HasMember("8"));

    const auto& group = reply_.groups["Group/1"];
    EXPECT_STREQ(group["name"].GetString(), "2020-01-02T03:04:05Z");  // no date rule for groups
    ASSERT_EQ(group["members"].Size(), 1u);
    EXPECT_STREQ(group["members"][0].GetString(), "7");
    EXPECT_FALSE(reply_.groups["Group/2"].HasMember("members"));
}

TEST_F(ContactReader, ARecordSentTwiceIsListedOnce) {
    feed(reply_, record("5", "com.apple.contacts.Contact", "<key>first name</key><string>Old</string>"));
    feed(reply_, record("5", "com.apple.contacts.Contact", "<key>first name</key><string>New</string>"),
         kContactFurtherBatch);
    EXPECT_EQ(reply_.contacts.MemberCount(), 1u);
    EXPECT_STREQ(reply_.contacts["5"]["first name"].GetString(), "New");
}

TEST_F(ContactReader, GroupChangeAnswerGivesTheNewId) {
    reply_.groupKey = "Group/abc";
    const std::string xml = Plist(
        "<array><string>SDMessageRemapRecordIdentifiers</string><string>com.apple.Contacts</string>"
        "<dict><key>Group/abc</key><string>Group/4</string></dict></array>");
    reply_.mode = kContactGroupChange;
    bool keepWaiting = true;
    uint8_t result = 0;
    ContactReplyHandler(&reply_, reinterpret_cast<const uint8_t*>(xml.data()), static_cast<uint32_t>(xml.size()),
                        &keepWaiting, &result);
    EXPECT_EQ(reply_.newGroupId, "Group/4");
}

}  // namespace
