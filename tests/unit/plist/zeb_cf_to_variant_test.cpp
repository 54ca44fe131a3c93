#include <gtest/gtest.h>

#include "zeb_bound_provider.h"
#include "zeb_plist_bridge.h"

namespace {

// A CF value parsed from one XML value element.
CFPropertyListRef Value(const std::string& element) {
    std::string text = Plist(element);
    return XmlToPlist(text.c_str(), text.size());
}

PlistVariant Converted(CFTypeRef value, bool expectStored = true) {
    PlistVariant v;
    EXPECT_EQ(CfToVariant(value, v), expectStored);
    CMobileExportFun::GetInstance().CFRelease(value);
    return v;
}

TEST(CfToVariant, ScalarsByTypeIdentifier) {
    auto& cf = BoundProvider();
    auto s = Converted(cf.CFStringCreateWithCString(nullptr, "iPhone", kZebCFStringEncodingUTF8));
    EXPECT_EQ(s.tag(), VariantTag::String);
    EXPECT_EQ(s.text(), "iPhone");

    auto i = Converted(Value("<integer>1234567890123</integer>"));
    EXPECT_EQ(i.tag(), VariantTag::Int64);
    EXPECT_EQ(i.int64(), 1234567890123LL);

    auto r = Converted(Value("<real>3.5</real>"));
    EXPECT_EQ(r.tag(), VariantTag::Double);
    EXPECT_DOUBLE_EQ(r.real(), 3.5);

    auto t = Converted(Value("<true/>"));
    EXPECT_EQ(t.tag(), VariantTag::Bool);
    EXPECT_TRUE(t.boolean());
    EXPECT_FALSE(Converted(Value("<false/>")).boolean());
}

TEST(CfToVariant, DataBecomesUpperCaseHex) {
    auto& cf = BoundProvider();
    const uint8_t bytes[] = {0x0a, 0xff, 0x00};
    auto d = Converted(cf.CFDataCreate(nullptr, bytes, 3));
    EXPECT_EQ(d.tag(), VariantTag::String);
    EXPECT_EQ(d.text(), "0AFF00");
    EXPECT_EQ(Converted(cf.CFDataCreate(nullptr, nullptr, 0)).text(), "");
}

TEST(CfToVariant, StringsBeyondAsciiOrTooLongAreLeftOut) {
    auto& cf = BoundProvider();
    Converted(cf.CFStringCreateWithCString(nullptr, "Zoë's phone", kZebCFStringEncodingUTF8), false);
    std::string name300(300, 'n');
    Converted(cf.CFStringCreateWithCString(nullptr, name300.c_str(), kZebCFStringEncodingUTF8), false);
    std::string name259(259, 'n');
    EXPECT_EQ(Converted(cf.CFStringCreateWithCString(nullptr, name259.c_str(), kZebCFStringEncodingUTF8)).text(),
              name259);
    // Dates are not among the kinds and are left out too.
    Converted(cf.CFDateCreate(nullptr, 1000.0), false);
}

TEST(CfToVariant, ContainersConvertMemberByMember) {
    BoundProvider();
    auto d = Converted(Value(
        "<dict><key>DeviceName</key><string>Zoë</string><key>ProductVersion</key><string>12.4</string>"
        "<key>UniqueChipID</key><integer>77</integer><key>Families</key><array><integer>1</integer>"
        "<string>x</string><date>2020-01-01T00:00:00Z</date></array></dict>"));
    ASSERT_EQ(d.tag(), VariantTag::Dictionary);
    EXPECT_EQ(d.Find("DeviceName"), nullptr) << "non-ASCII text is absent";
    EXPECT_EQ(d.Find("ProductVersion")->text(), "12.4");
    EXPECT_EQ(d.Find("UniqueChipID")->int64(), 77);
    const PlistVariant* families = d.Find("Families");
    ASSERT_NE(families, nullptr);
    ASSERT_EQ(families->tag(), VariantTag::Array);
    ASSERT_EQ(families->array().size(), 2u);
    EXPECT_EQ(families->At(0)->int64(), 1);
    EXPECT_EQ(families->At(1)->text(), "x");
}

TEST(CfToVariant, NullGivesNothing) {
    BoundProvider();
    PlistVariant v = PlistVariant::Int32(5);
    EXPECT_FALSE(CfToVariant(nullptr, v));
    EXPECT_TRUE(v.empty());
}

}  // namespace
