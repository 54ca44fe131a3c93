// Store metadata into the parent's JSON, base64, times, and the messages.
#include "zeb_app_messages.h"
#include "zeb_app_metadata.h"
#include "zeb_bound_provider.h"

#include <gtest/gtest.h>
#include <tinyxml2.h>

#include <cstdlib>
#include <ctime>

namespace {

PlistVariant text(const std::string& value) { return PlistVariant::String(value); }

PlistVariant dictionary(std::initializer_list<std::pair<std::string, PlistVariant>> members) {
    auto d = std::make_shared<CIOSDictionary>();
    for (const auto& [key, value] : members) d->Insert(key, value);
    return PlistVariant::Dictionary(d);
}

int membersNamed(const rapidjson::Value& object, const char* name) {
    int count = 0;
    for (const auto& member : object.GetObject()) count += std::string(member.name.GetString()) == name;
    return count;
}

}  // namespace

TEST(AppMetadata, Base64AcceptsLineBreaksAndRefusesOtherText) {
    std::string bytes;
    ASSERT_TRUE(zeb::decodeBase64("AAEC\n\tAw==\r\n", bytes));
    EXPECT_EQ(bytes, std::string("\x00\x01\x02\x03", 4));
    ASSERT_TRUE(zeb::decodeBase64("aGk=", bytes));
    EXPECT_EQ(bytes, "hi");
    ASSERT_TRUE(zeb::decodeBase64("aGVsbG8h", bytes));
    EXPECT_EQ(bytes, "hello!");
    EXPECT_FALSE(zeb::decodeBase64("aGk", bytes));
    EXPECT_FALSE(zeb::decodeBase64("a@k=", bytes));
}

TEST(AppMetadata, StoreTimesBecomeLocalTextAndShortOnesEmpty) {
    setenv("TZ", "Asia/Kolkata", 1);
    tzset();
    EXPECT_EQ(zeb::storeTimeText("2016-03-14T07:00:00Z"), "2016-03-14 12:30:00");
    EXPECT_EQ(zeb::storeTimeText("2016-12-31T20:00:00Z"), "2017-01-01 01:30:00");
    EXPECT_EQ(zeb::storeTimeText("2016-03-14T07:00"), "");
}

TEST(AppMetadata, MembersKeepWhatTheAppSaysAndAddTheStoreFields) {
    setenv("TZ", "UTC", 1);
    tzset();
    PlistVariant metadata = dictionary({
        {"softwareVersionBundleId", text("com.example.from-store")},
        {"bundleShortVersionString", text("2.0")},
        {"bundleVersion", text("200")},
        {"bundleDisplayName", text("Store Name")},
        {"releaseDate", text("2020-05")},
        {"artistName", text("Maker & Co")},
        {"itemName", text("Item")},
        {"appleId", text("first@example.com")},
        {"com.apple.iTunesStore.downloadInfo",
         dictionary({{"purchaseDate", text("2021-01-02T03:04:05Z")},
                     {"accountInfo", dictionary({{"AppleID", text("second@example.com")}})}})},
    });
    rapidjson::Document object;
    object.SetObject();
    object.AddMember("CFBundleIdentifier", "com.example.device", object.GetAllocator());
    object.AddMember("CFBundleVersion", "199", object.GetAllocator());
    zeb::addMetadataMembers(metadata, object, object.GetAllocator());

    EXPECT_STREQ(object["CFBundleIdentifier"].GetString(), "com.example.device");
    EXPECT_STREQ(object["CFBundleVersion"].GetString(), "199");
    EXPECT_STREQ(object["CFBundleShortVersionString"].GetString(), "2.0");
    EXPECT_STREQ(object["CFBundleDisplayName"].GetString(), "Store Name");
    EXPECT_STREQ(object["releaseDate"].GetString(), "");  // too short to read
    EXPECT_STREQ(object["artistName"].GetString(), "Maker & Co");
    EXPECT_STREQ(object["purchaseDate"].GetString(), "2021-01-02 03:04:05");
    EXPECT_FALSE(object.HasMember("softwareIcon57x57URL"));
    // The account from the download information comes as a second member.
    ASSERT_EQ(membersNamed(object, "AppleID"), 2);
    EXPECT_STREQ(object["AppleID"].GetString(), "first@example.com");
}

TEST(AppMessages, PastedTextsStayTextInTheXml) {
    const std::string identifier = "com.example.a<b>&\"c'";
    for (auto kind : {zeb::AppMessage::GetIcon, zeb::AppMessage::Upgrade, zeb::AppMessage::Archive,
                      zeb::AppMessage::Uninstall}) {
        const std::string xml = zeb::appMessageXml(kind, identifier);
        tinyxml2::XMLDocument document;
        ASSERT_EQ(document.Parse(xml.c_str()), tinyxml2::XML_SUCCESS) << xml;
        const auto* first = document.FirstChildElement("plist")->FirstChildElement("dict")->FirstChildElement("string");
        ASSERT_NE(first, nullptr);
        EXPECT_EQ(std::string(first->GetText()), identifier);
    }
    BoundProvider();
    SyncMessage* message = zeb::encodeAppMessage(zeb::AppMessage::Uninstall, identifier);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(message->bytes), 6), "bplist");
    FreeSyncMessage(message);
}
