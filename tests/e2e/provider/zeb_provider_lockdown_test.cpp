#include <gtest/gtest.h>

#include "zeb_plist_bridge.h"
#include "zeb_provider_world.h"
#include "zeb_sync_frames.h"

namespace {

// An owned value of the default domain, or of domain.
struct Value {
    Value(AMDeviceRef device, const char* key, const char* domain = nullptr)
        : ref(CMobileExportFun::GetInstance().AMDeviceCopyValue(device, domain ? Key(domain) : nullptr,
                                                               key ? Key(key) : nullptr)) {}
    ~Value() {
        if (ref) CMobileExportFun::GetInstance().CFRelease(ref);
    }
    CFTypeRef ref;
};

TEST(ProviderLockdown, ValuesOfEveryKind) {
    auto& world = ProviderWorld::Get();
    auto& md = world.md();
    DeviceSession session(world.trustedIphone);
    ASSERT_TRUE(session.ok());
    AMDeviceRef d = world.trustedIphone;

    EXPECT_EQ(TextOf(Value(d, "ProductVersion").ref).rfind("17.", 0), 0u);
    EXPECT_EQ(TextOf(Value(d, "UniqueDeviceID").ref), "00008110-001A2B3C4D5E601E");

    Value chip(d, "UniqueChipID");
    ASSERT_EQ(md.CFGetTypeID(chip.ref), kZebCFNumberTypeID);
    int64_t chipId = 0;
    EXPECT_TRUE(md.CFNumberGetValue(chip.ref, kZebCFNumberSInt64Type, &chipId));
    EXPECT_EQ(chipId, 7339100000000030LL);

    Value offset(d, "TimeZoneOffsetFromUTC");
    ASSERT_EQ(md.CFGetTypeID(offset.ref), kZebCFNumberTypeID);
    EXPECT_EQ(md.CFNumberGetType(offset.ref), kZebCFNumberFloat64Type);
    double seconds = 0;
    md.CFNumberGetValue(offset.ref, kZebCFNumberFloat64Type, &seconds);
    EXPECT_DOUBLE_EQ(seconds, -14400.0);

    Value sidp(d, "HasSiDP");
    ASSERT_EQ(md.CFGetTypeID(sidp.ref), kZebCFBooleanTypeID);
    EXPECT_TRUE(md.CFBooleanGetValue(sidp.ref));

    Value behaviour(d, "SoftwareBehavior");
    ASSERT_EQ(md.CFGetTypeID(behaviour.ref), kZebCFDataTypeID);
    ASSERT_GE(md.CFDataGetLength(behaviour.ref), 1);
    EXPECT_EQ(md.CFDataGetBytePtr(behaviour.ref)[0], 0x11);

    Value families(d, "SupportedDeviceFamilies");
    ASSERT_EQ(md.CFGetTypeID(families.ref), kZebCFArrayTypeID);
    ASSERT_EQ(md.CFArrayGetCount(families.ref), 1);
    PlistVariant asVariant;
    ASSERT_TRUE(CfToVariant(families.ref, asVariant));
    EXPECT_EQ(asVariant.At(0)->int64(), 1);

    // A whole domain, and the whole default domain.
    Value battery(d, nullptr, "com.apple.mobile.battery");
    ASSERT_EQ(md.CFGetTypeID(battery.ref), kZebCFDictionaryTypeID);
    EXPECT_NE(md.CFDictionaryGetValue(battery.ref, Key("BatteryIsCharging")), nullptr);
    Value all(d, nullptr);
    ASSERT_EQ(md.CFGetTypeID(all.ref), kZebCFDictionaryTypeID);
    EXPECT_EQ(TextOf(md.CFDictionaryGetValue(all.ref, Key("UniqueDeviceID"))), "00008110-001A2B3C4D5E601E");

    EXPECT_EQ(Value(d, "NoSuchKeyAnywhere").ref, nullptr);
}

TEST(ProviderLockdown, SetValueRenamesTheDevice) {
    auto& world = ProviderWorld::Get();
    auto& md = world.md();
    DeviceSession session(world.trustedIphone);
    ASSERT_TRUE(session.ok());
    std::string original = TextOf(Value(world.trustedIphone, "DeviceName").ref);
    ASSERT_NE(original, "<none>");

    CFStringRef name = md.CFStringCreateWithCString(nullptr, "Zoë's test phone", kZebCFStringEncodingUTF8);
    EXPECT_EQ(md.AMDeviceSetValue(world.trustedIphone, nullptr, Key("DeviceName"), name), 0);
    md.CFRelease(name);
    EXPECT_EQ(TextOf(Value(world.trustedIphone, "DeviceName").ref), "Zoë's test phone");

    CFStringRef back = md.CFStringCreateWithCString(nullptr, original.c_str(), kZebCFStringEncodingUTF8);
    EXPECT_EQ(md.AMDeviceSetValue(world.trustedIphone, nullptr, Key("DeviceName"), back), 0);
    md.CFRelease(back);
}

TEST(ProviderLockdown, SessionsNestAndServicesNeedOne) {
    auto& world = ProviderWorld::Get();
    auto& md = world.md();
    AMDeviceRef d = world.trustedIphone;
    ASSERT_EQ(md.AMDeviceConnect(d), 0);
    AMDServiceConnectionRef service = nullptr;
    EXPECT_NE(md.AMDeviceSecureStartService(d, Key("com.apple.afc"), nullptr, &service), 0);
    EXPECT_EQ(service, nullptr);
    // Start, stop, start again: only the last start counts.
    ASSERT_EQ(md.AMDeviceStartSession(d), 0);
    md.AMDeviceStopSession(d);
    ASSERT_EQ(md.AMDeviceStartSession(d), 0);
    {
        DeviceSession inner(d);  // a second holder of the same link and session
        ASSERT_TRUE(inner.ok());
    }
    EXPECT_NE(Value(d, "DeviceName").ref, nullptr) << "the outer session outlives the inner one";
    EXPECT_NE(md.AMDeviceSecureStartService(d, Key("com.apple.no.such.service"), nullptr, &service), 0);
    md.AMDeviceStopSession(d);
    md.AMDeviceDisconnect(d);
}

struct Reply {
    std::string status;
    int frames = 0;
};

void ReadStatus(void* context, const uint8_t* bytes, uint32_t length, bool* keepWaiting, uint8_t* result) {
    auto* reply = static_cast<Reply*>(context);
    ++reply->frames;
    PlistVariant decoded;
    if (DecodeFrame(bytes, length, decoded) && decoded.At(0)) {
        if (const PlistVariant* status = decoded.At(0)->Find("Status")) reply->status = status->text();
    }
    *keepWaiting = false;
    *result = reply->status == "Success" ? 1 : 2;
}

TEST(ProviderLockdown, ServiceFramesWithSyncExchange) {
    auto& world = ProviderWorld::Get();
    auto& md = world.md();
    DeviceSession session(world.trustedIphone);
    ASSERT_TRUE(session.ok());
    AMDServiceConnectionRef service = nullptr;
    ASSERT_EQ(md.AMDeviceSecureStartService(world.trustedIphone, Key("com.apple.mobile.diagnostics_relay"), nullptr,
                                            &service),
              0);
    ASSERT_NE(service, nullptr);
    EXPECT_GE(md.AMDServiceConnectionGetSocket(service), 0);

    SyncMessage* request = EncodeMessage(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"><plist version=\"1.0\"><dict><key>Request</key>"
        "<string>Goodbye</string></dict></plist>");
    ASSERT_NE(request, nullptr);
    Reply reply;
    EXPECT_EQ(SyncExchange(service, request, ReadStatus, &reply), 1);
    EXPECT_EQ(reply.frames, 1);
    EXPECT_EQ(reply.status, "Success");
    FreeSyncMessage(request);
    md.AMDServiceConnectionInvalidate(service);
}

}  // namespace
