#include <gtest/gtest.h>

#include "zeb_bound_provider.h"
#include "zeb_plist_bridge.h"

namespace {

const char* const kBody =
    "<dict><key>MessageName</key><string>Hello</string><key>Version</key><array><integer>300</integer>"
    "<integer>1</integer></array><key>On</key><true/></dict></plist>";

// The prologues the worker's message templates are written with.
const char* const kPrologues[] = {
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"><plist version=\"1.0\">",
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"><plist version=\"1.0\">",
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\r\n<plist version=\"1.0\">\r\n",
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPEplist PUBLIC \"-//Apple Computer//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"><plist version=\"1.0\">",
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.0// EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"><plist version=\"1.0\">",
};

TEST(PlistEncode, EveryTemplatePrologueEncodesToTheSameMessage) {
    BoundProvider();
    std::string reference;
    for (const char* prologue : kPrologues) {
        std::string text = std::string(prologue) + kBody;
        SyncMessage* m = EncodeMessage(text.c_str());
        ASSERT_NE(m, nullptr) << prologue;
        std::string bytes(reinterpret_cast<const char*>(m->bytes), m->length);
        if (reference.empty()) reference = bytes;
        EXPECT_EQ(bytes, reference) << prologue;

        PlistVariant decoded;
        ASSERT_TRUE(DecodeFrame(m->bytes, m->length, decoded));
        const PlistVariant* message = decoded.At(0);
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(message->Find("MessageName")->text(), "Hello");
        EXPECT_EQ(message->Find("Version")->At(0)->int64(), 300);
        EXPECT_TRUE(message->Find("On")->boolean());
        FreeSyncMessage(m);
    }
}

TEST(PlistEncode, ExplicitLengthLimitsTheText) {
    BoundProvider();
    std::string text = std::string(kPrologues[0]) + kBody;
    std::string padded = text + "trailing garbage that is not XML";
    SyncMessage* m = EncodeMessage(padded.c_str(), static_cast<long>(text.size()));
    ASSERT_NE(m, nullptr);
    FreeSyncMessage(m);
    // Cut short, the text is no longer a property list.
    EXPECT_EQ(EncodeMessage(text.c_str(), static_cast<long>(text.size() / 2)), nullptr);
}

TEST(PlistEncode, MalformedTextGivesNull) {
    BoundProvider();
    EXPECT_EQ(EncodeMessage("<plist><dict><key>x</key></plist>"), nullptr);
    EXPECT_EQ(EncodeMessage(""), nullptr);
    EXPECT_EQ(XmlToPlist("not a plist", 11), nullptr);
}

TEST(PlistEncode, ValueEncodesInBothFormats) {
    auto& cf = BoundProvider();
    std::string text = std::string(kPrologues[0]) + kBody;
    CFPropertyListRef value = XmlToPlist(text.c_str(), text.size());
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(cf.CFGetTypeID(value), kZebCFDictionaryTypeID);

    SyncMessage* binary = EncodeValue(value, kZebCFPropertyListBinaryFormat);
    SyncMessage* xml = EncodeValue(value, kZebCFPropertyListXMLFormat);
    ASSERT_NE(binary, nullptr);
    ASSERT_NE(xml, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(binary->bytes), 6), "bplist");
    std::string xmlText(reinterpret_cast<const char*>(xml->bytes), xml->length);
    EXPECT_NE(xmlText.find("<key>MessageName</key>"), std::string::npos);
    PlistVariant a, b;
    ASSERT_TRUE(DecodeFrame(binary->bytes, binary->length, a));
    ASSERT_TRUE(DecodeFrame(xml->bytes, xml->length, b));
    EXPECT_EQ(a.At(0)->Find("MessageName")->text(), b.At(0)->Find("MessageName")->text());
    FreeSyncMessage(binary);
    FreeSyncMessage(xml);
    cf.CFRelease(value);
}

}  // namespace
