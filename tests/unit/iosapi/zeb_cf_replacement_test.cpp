// The provider's CF replacement, called as the worker calls it: through the
// bound record.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "zeb_mobile_export_fun.h"

namespace {

CMobileExportFun& Cf() {
    auto& fun = CMobileExportFun::GetInstance();
    EXPECT_TRUE(fun.Init());
    return fun;
}

CFStringRef Text(const char* s) { return Cf().CFStringCreateWithCString(nullptr, s, kZebCFStringEncodingUTF8); }

std::string Read(CFStringRef s) {
    char buffer[512];
    return Cf().CFStringGetCString(s, buffer, sizeof buffer, kZebCFStringEncodingUTF8) ? buffer : "<failed>";
}

TEST(CfStrings, LengthsEncodingsAndBuffers) {
    auto& cf = Cf();
    CFStringRef s = Text("a\xC3\xA9\xF0\x9F\x98\x80");  // a, e acute, an emoji
    EXPECT_EQ(cf.CFGetTypeID(s), kZebCFStringTypeID);
    EXPECT_EQ(cf.CFStringGetLength(s), 4) << "UTF-16 units: the emoji counts two";
    char small[4];
    EXPECT_FALSE(cf.CFStringGetCString(s, small, sizeof small, kZebCFStringEncodingUTF8));
    char ascii[64];
    EXPECT_FALSE(cf.CFStringGetCString(s, ascii, sizeof ascii, kZebCFStringEncodingASCII));
    EXPECT_EQ(Read(s), "a\xC3\xA9\xF0\x9F\x98\x80");
    CFStringRef copy = cf.CFStringCreateCopy(nullptr, s);
    cf.CFRelease(s);
    EXPECT_EQ(Read(copy), "a\xC3\xA9\xF0\x9F\x98\x80");
    cf.CFRelease(copy);

    // Interned strings are the same object every time and survive a release.
    CFStringRef k1 = cf.__CFStringMakeConstantString("DeviceName");
    cf.CFRelease(k1);
    CFStringRef k2 = cf.__CFStringMakeConstantString("DeviceName");
    EXPECT_EQ(k1, k2);
    EXPECT_EQ(Read(k2), "DeviceName");
}

TEST(CfCollections, DictionariesRetainAndMatchKeysByContent) {
    auto& cf = Cf();
    CFMutableDictionaryRef d = cf.CFDictionaryCreateMutable(nullptr, 0, nullptr, nullptr);
    CFStringRef key = Text("UnlockEscrowBag");
    CFStringRef other = Text("Name");
    CFStringRef value = Text("first");
    cf.CFDictionaryAddValue(d, key, *cf.kCFBooleanTrue);
    cf.CFDictionaryAddValue(d, other, value);
    CFStringRef ignored = Text("ignored");
    cf.CFDictionaryAddValue(d, other, ignored);  // adding never replaces
    cf.CFRelease(ignored);
    cf.CFRelease(value);  // the dictionary keeps its own reference
    cf.CFRelease(key);

    EXPECT_EQ(cf.CFGetTypeID(d), kZebCFDictionaryTypeID);
    EXPECT_EQ(cf.CFDictionaryGetCount(d), 2);
    EXPECT_EQ(cf.CFDictionaryGetValue(d, cf.__CFStringMakeConstantString("UnlockEscrowBag")), *cf.kCFBooleanTrue);
    EXPECT_EQ(Read(cf.CFDictionaryGetValue(d, other)), "first");
    EXPECT_TRUE(cf.CFDictionaryContainsKey(d, other));
    EXPECT_FALSE(cf.CFDictionaryContainsKey(d, cf.__CFStringMakeConstantString("Missing")));

    const void* keys[2];
    const void* values[2];
    cf.CFDictionaryGetKeysAndValues(d, keys, values);
    int seen = 0;
    cf.CFDictionaryApplyFunction(d, [](const void*, const void*, void* n) { ++*static_cast<int*>(n); }, &seen);
    EXPECT_EQ(seen, 2);
    EXPECT_EQ(Read(keys[1]), "Name");
    cf.CFRelease(other);
    cf.CFRelease(d);
}

TEST(CfCollections, ArraysKeepOrder) {
    auto& cf = Cf();
    CFMutableArrayRef a = cf.CFArrayCreateMutable(nullptr, 0, nullptr);
    for (const char* s : {"zero", "one", "two"}) {
        CFStringRef item = Text(s);
        cf.CFArrayAppendValue(a, item);
        cf.CFRelease(item);
    }
    cf.CFArrayRemoveValueAtIndex(a, 1);
    EXPECT_EQ(cf.CFArrayGetCount(a), 2);
    EXPECT_EQ(Read(cf.CFArrayGetValueAtIndex(a, 1)), "two");
    EXPECT_EQ(cf.CFArrayGetValueAtIndex(a, 2), nullptr);
    cf.CFRelease(a);
}

TEST(CfPropertyLists, RoundTripThroughBinaryStreamAndXml) {
    auto& cf = Cf();
    const char* xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
        "<key>Date</key><date>2001-01-02T00:00:00Z</date><key>Int</key><integer>-5</integer>"
        "<key>Real</key><real>1.5</real><key>Data</key><data>AAEC</data><key>No</key><false/>"
        "</dict></plist>";
    CFDataRef data = cf.CFDataCreate(nullptr, reinterpret_cast<const uint8_t*>(xml), std::strlen(xml));
    CFPropertyListRef list = cf.CFPropertyListCreateFromXMLData(nullptr, data, 0, nullptr);
    cf.CFRelease(data);
    ASSERT_NE(list, nullptr);

    CFWriteStreamRef stream = cf.CFWriteStreamCreateWithAllocatedBuffers(nullptr, nullptr);
    ASSERT_TRUE(cf.CFWriteStreamOpen(stream));
    CFIndex written = cf.CFPropertyListWriteToStream(list, stream, kZebCFPropertyListBinaryFormat, nullptr);
    EXPECT_GT(written, 0);
    CFDataRef binary = cf.CFWriteStreamCopyProperty(stream, *cf.kCFStreamPropertyDataWritten);
    cf.CFWriteStreamClose(stream);
    cf.CFRelease(stream);
    ASSERT_EQ(cf.CFDataGetLength(binary), written);
    EXPECT_EQ(std::memcmp(cf.CFDataGetBytePtr(binary), "bplist00", 8), 0);

    CFIndex format = 0;
    CFPropertyListRef again = cf.CFPropertyListCreateWithData(nullptr, binary, 0, &format, nullptr);
    EXPECT_EQ(format, kZebCFPropertyListBinaryFormat);
    cf.CFRelease(binary);
    ASSERT_NE(again, nullptr);

    CFTypeRef date = cf.CFDictionaryGetValue(again, cf.__CFStringMakeConstantString("Date"));
    EXPECT_EQ(cf.CFGetTypeID(date), kZebCFDateTypeID);
    EXPECT_DOUBLE_EQ(cf.CFDateGetAbsoluteTime(date), 86400.0);
    CFTypeRef integer = cf.CFDictionaryGetValue(again, cf.__CFStringMakeConstantString("Int"));
    EXPECT_EQ(cf.CFNumberGetType(integer), kZebCFNumberSInt64Type);
    int32_t small = 0;
    EXPECT_TRUE(cf.CFNumberGetValue(integer, kZebCFNumberSInt32Type, &small));
    EXPECT_EQ(small, -5);
    CFTypeRef real = cf.CFDictionaryGetValue(again, cf.__CFStringMakeConstantString("Real"));
    double d = 0;
    EXPECT_EQ(cf.CFNumberGetType(real), kZebCFNumberFloat64Type);
    EXPECT_TRUE(cf.CFNumberGetValue(real, kZebCFNumberFloat64Type, &d));
    EXPECT_DOUBLE_EQ(d, 1.5);
    CFTypeRef bytes = cf.CFDictionaryGetValue(again, cf.__CFStringMakeConstantString("Data"));
    ASSERT_EQ(cf.CFDataGetLength(bytes), 3);
    EXPECT_EQ(cf.CFDataGetBytePtr(bytes)[2], 2);
    EXPECT_FALSE(cf.CFBooleanGetValue(cf.CFDictionaryGetValue(again, cf.__CFStringMakeConstantString("No"))));

    // The XML form sorts its keys.
    CFDataRef text = cf.CFPropertyListCreateXMLData(nullptr, again);
    std::string xmlOut(reinterpret_cast<const char*>(cf.CFDataGetBytePtr(text)), cf.CFDataGetLength(text));
    EXPECT_LT(xmlOut.find("<key>Data</key>"), xmlOut.find("<key>Date</key>"));
    EXPECT_LT(xmlOut.find("<key>Date</key>"), xmlOut.find("<key>Real</key>"));
    cf.CFRelease(text);
    cf.CFRelease(again);
    cf.CFRelease(list);
}

TEST(CfPropertyLists, GarbageAndClosedStreamsFail) {
    auto& cf = Cf();
    const uint8_t junk[] = {'b', 'p', 'l', 'i', 's', 't', '0', '0', 1, 2, 3};
    CFDataRef data = cf.CFDataCreate(nullptr, junk, sizeof junk);
    EXPECT_EQ(cf.CFPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr), nullptr);
    CFWriteStreamRef stream = cf.CFWriteStreamCreateWithAllocatedBuffers(nullptr, nullptr);
    CFStringRef s = Text("x");
    EXPECT_EQ(cf.CFPropertyListWriteToStream(s, stream, kZebCFPropertyListBinaryFormat, nullptr), 0)
        << "a stream that was never opened takes nothing";
    cf.CFRelease(s);
    cf.CFRelease(stream);
    cf.CFRelease(data);
}

TEST(CfDates, AbsoluteTimeIsCountedFrom2001) {
    auto& cf = Cf();
    double now = cf.CFAbsoluteTimeGetCurrent();
    EXPECT_GT(now, 7.0e8);  // after 2023
    EXPECT_LT(now, 2.0e9);
    CFDateRef date = cf.CFDateCreate(nullptr, 12.25);
    EXPECT_DOUBLE_EQ(cf.CFDateGetAbsoluteTime(date), 12.25);
    cf.CFRelease(date);
}

}  // namespace
