#include <gtest/gtest.h>

#include <algorithm>

#include "zeb_bound_provider.h"
#include "zeb_plist_bridge.h"

namespace {

std::string WithoutSpace(std::string s) {
    s.erase(std::remove_if(s.begin(), s.end(), [](char c) { return std::isspace(static_cast<unsigned char>(c)); }),
            s.end());
    return s;
}

const PlistVariant& Message(const PlistVariant& decoded) {
    static const PlistVariant kNone;
    EXPECT_EQ(decoded.tag(), VariantTag::Array);
    const PlistVariant* first = decoded.At(0);
    return first ? *first : kNone;
}

TEST(PlistDecode, DictionaryMembersFollowTheDictionaryRules) {
    auto decoded = DecodeXml(Plist(
        "<dict>"
        "<key>Name</key><string>Ünïcode phone</string>"
        "<key>When</key><date>2020-01-02T03:04:05Z</date>"
        "<key>Blob</key><data>AAECAw==</data>"
        "<key>Count</key><integer>-42</integer>"
        "<key>Big</key><integer>9000000000</integer>"
        "<key>Yes</key><true/>"
        "<key>No</key><false/>"
        "<key>Ratio</key><real>0.5</real>"
        "<key>Empty</key><string></string>"
        "<key>List</key><array><string>a</string></array>"
        "<key>Inner</key><dict><key>K</key><string>v</string></dict>"
        "</dict>"));
    const PlistVariant& m = Message(decoded);
    ASSERT_EQ(m.tag(), VariantTag::Dictionary);
    EXPECT_EQ(m.Find("Name")->text(), "Ünïcode phone");
    EXPECT_EQ(m.Find("When")->tag(), VariantTag::String);
    EXPECT_EQ(m.Find("When")->text(), "2020-01-02T03:04:05Z");
    // Data arrives as its base64 text, as the XML writer laid it out.
    EXPECT_EQ(m.Find("Blob")->tag(), VariantTag::String);
    EXPECT_EQ(WithoutSpace(m.Find("Blob")->text()), "AAECAw==");
    EXPECT_EQ(m.Find("Count")->tag(), VariantTag::Int64);
    EXPECT_EQ(m.Find("Count")->int64(), -42);
    EXPECT_EQ(m.Find("Big")->int64(), 9000000000LL);
    EXPECT_TRUE(m.Find("Yes")->boolean());
    EXPECT_EQ(m.Find("Yes")->booleanWord(), -1);
    EXPECT_EQ(m.Find("No")->tag(), VariantTag::Bool);
    EXPECT_FALSE(m.Find("No")->boolean());
    EXPECT_EQ(m.Find("Ratio"), nullptr) << "a real in a dictionary is dropped";
    EXPECT_EQ(m.Find("Empty"), nullptr) << "an empty string leaves its key out";
    ASSERT_EQ(m.Find("List")->tag(), VariantTag::Array);
    EXPECT_EQ(m.Find("List")->At(0)->text(), "a");
    EXPECT_EQ(m.Find("Inner")->Find("K")->text(), "v");
}

TEST(PlistDecode, ArrayElementsFollowTheArrayRules) {
    auto decoded = DecodeXml(Plist(
        "<array>"
        "<string>first</string>"
        "<string></string>"
        "<integer>7</integer>"
        "<true/>"
        "<real>2.25</real>"
        "<date>2020-01-02T03:04:05Z</date>"
        "<data>AAEC</data>"
        "<dict><key>K</key><integer>1</integer></dict>"
        "<array><false/></array>"
        "</array>"));
    const PlistVariant& m = Message(decoded);
    ASSERT_EQ(m.tag(), VariantTag::Array);
    const auto& a = m.array();
    // The empty string, the date and the data are passed over.
    ASSERT_EQ(a.size(), 6u);
    EXPECT_EQ(a[0].text(), "first");
    EXPECT_EQ(a[1].int64(), 7);
    EXPECT_TRUE(a[2].boolean());
    EXPECT_EQ(a[3].tag(), VariantTag::Double);
    EXPECT_DOUBLE_EQ(a[3].real(), 2.25);
    EXPECT_EQ(a[4].Find("K")->int64(), 1);
    ASSERT_EQ(a[5].tag(), VariantTag::Array);
    EXPECT_FALSE(a[5].At(0)->boolean());
}

TEST(PlistDecode, TopDictionaryBecomesOneElementArray) {
    auto decoded = DecodeXml(Plist("<dict><key>A</key><string>b</string></dict>"));
    ASSERT_EQ(decoded.tag(), VariantTag::Array);
    ASSERT_EQ(decoded.array().size(), 1u);
    EXPECT_EQ(decoded.At(0)->tag(), VariantTag::Dictionary);
}

TEST(PlistDecode, BinaryAndXmlBodiesDecodeAlike) {
    BoundProvider();
    std::string xml = Plist("<dict><key>Command</key><string>Ping</string><key>N</key><integer>3</integer></dict>");
    SyncMessage* binary = EncodeMessage(xml.c_str());
    ASSERT_NE(binary, nullptr);
    ASSERT_GE(binary->length, 8u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(binary->bytes), 8), "bplist00");
    PlistVariant fromBinary;
    ASSERT_TRUE(DecodeFrame(binary->bytes, binary->length, fromBinary));
    FreeSyncMessage(binary);
    auto fromXml = DecodeXml(xml);
    EXPECT_EQ(fromBinary.At(0)->Find("Command")->text(), "Ping");
    EXPECT_EQ(fromXml.At(0)->Find("Command")->text(), "Ping");
    EXPECT_EQ(fromBinary.At(0)->Find("N")->int64(), fromXml.At(0)->Find("N")->int64());
}

TEST(PlistDecode, BodiesThatAreNotPropertyListsGiveNothing) {
    BoundProvider();
    const std::string junk[] = {"hello there", "bplist00\x01\x02", "<plist><dict><key>a</key>", std::string(1, '\0')};
    for (const auto& body : junk) {
        PlistVariant v;
        EXPECT_FALSE(DecodeFrame(reinterpret_cast<const uint8_t*>(body.data()), body.size(), v)) << body;
        EXPECT_TRUE(v.empty());
        std::string text = "stale";
        DecodeToXml(reinterpret_cast<const uint8_t*>(body.data()), body.size(), text);
        EXPECT_EQ(text, "");
    }
    PlistVariant v;
    EXPECT_FALSE(DecodeFrame(nullptr, 0, v));
}

TEST(PlistDecode, FirstValueTextReadsTheFirstKeyInSortedOrder) {
    BoundProvider();
    // The dictionary is written with sorted keys, so "Command" comes first.
    std::string xml = Plist("<dict><key>Session</key><string>s1</string><key>Command</key><string>Sync</string></dict>");
    SyncMessage* m = EncodeMessage(xml.c_str());
    ASSERT_NE(m, nullptr);
    std::string name;
    DecodeToXml(m->bytes, m->length, name);
    EXPECT_EQ(name, "Sync");
    FreeSyncMessage(m);

    EXPECT_EQ(FirstValueText("<plist><dict><key>A</key><integer>5</integer></dict></plist>"), "5");
    EXPECT_EQ(FirstValueText("<plist><dict/></plist>"), "");
    EXPECT_EQ(FirstValueText("not xml"), "");
}

TEST(PlistDecode, MessagesBeyondSixtyFourKiBAreReadWhole) {
    BoundProvider();
    std::string big(100000, 'x');
    std::string xml = Plist("<dict><key>Command</key><string>" + big + "</string></dict>");
    SyncMessage* m = EncodeMessage(xml.c_str());
    ASSERT_NE(m, nullptr);
    std::string name;
    DecodeToXml(m->bytes, m->length, name);
    EXPECT_EQ(name, big);
    FreeSyncMessage(m);
}

}  // namespace
