// The binding walked from failure to success in one process, as a worker
// that retries its start would: a failed Init leaves the record unbound and
// may be repeated.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "zeb_mobile_export_fun.h"

namespace {

constexpr size_t kSlots = 99;

// The slots are the record's first 99 pointer-wide members.
size_t BoundSlots(const CMobileExportFun& fun) {
    auto* slots = reinterpret_cast<void* const*>(&fun.AMDeviceNotificationSubscribe);
    size_t bound = 0;
    for (size_t i = 0; i < kSlots; ++i) bound += slots[i] != nullptr;
    return bound;
}

TEST(Binding, FromMissingProviderToStandInToRealProvider) {
    auto& fun = CMobileExportFun::GetInstance();
    static_assert(offsetof(CMobileExportFun, initialised) == kSlots * sizeof(void*));

    // A provider path that does not exist.
    setenv("ZEBRELO_DEVICE_PROVIDER", "/nonexistent/libzebrelo-mobiledevice.so", 1);
    EXPECT_EQ(CMobileExportFun::ProviderCandidates(),
              std::vector<std::string>{"/nonexistent/libzebrelo-mobiledevice.so"});
    EXPECT_FALSE(fun.Init());
    EXPECT_EQ(fun.initialised, 0);
    EXPECT_EQ(BoundSlots(fun), 0u);

    // A library that lacks AMDeviceSetValue: the names resolved before it
    // stay bound, those after it are never looked at.
    setenv("ZEBRELO_DEVICE_PROVIDER", ZEB_STAND_IN_PATH, 1);
    EXPECT_FALSE(fun.Init());
    EXPECT_EQ(fun.initialised, 0);
    EXPECT_NE(fun.CFStringGetCString, nullptr);              // first group of CF names
    EXPECT_NE(fun.AFCConnectionSetSecureContext, nullptr);   // the device name just before
    EXPECT_EQ(fun.AMDeviceSetValue, nullptr);
    EXPECT_EQ(fun.CFWriteStreamOpen, nullptr);               // the stream names come after
    EXPECT_EQ(fun.CFDateGetAbsoluteTime, nullptr);
    EXPECT_EQ(BoundSlots(fun), 26u + 53u);

    // The real provider binds all 99 slots, and a bound record answers at once.
    setenv("ZEBRELO_DEVICE_PROVIDER", ZEB_PROVIDER_PATH, 1);
    ASSERT_TRUE(fun.Init());
    EXPECT_EQ(fun.initialised, 1);
    EXPECT_EQ(BoundSlots(fun), kSlots);
    EXPECT_NE(fun.mobileDeviceModule, nullptr);
    EXPECT_EQ(fun.AFCFileInfoOpenFirst, fun.AFCFileInfoOpen);
    setenv("ZEBRELO_DEVICE_PROVIDER", "/nonexistent/again.so", 1);
    EXPECT_TRUE(fun.Init());

    // The data slots point at the provider's constants.
    CFBooleanRef yes = *fun.kCFBooleanTrue;
    EXPECT_EQ(fun.CFGetTypeID(yes), kZebCFBooleanTypeID);
    EXPECT_TRUE(fun.CFBooleanGetValue(yes));
    EXPECT_EQ(fun.CFGetTypeID(*fun.kCFStreamPropertyDataWritten), kZebCFStringTypeID);
}

TEST(Binding, SearchOrderWithoutAnExplicitPath) {
    unsetenv("ZEBRELO_DEVICE_PROVIDER");
    auto candidates = CMobileExportFun::ProviderCandidates();
    ASSERT_EQ(candidates.size(), 3u);
    // Beside the executable, then ../lib/zebrelo/, then the linker's search.
    EXPECT_NE(candidates[0].find("/bin/libzebrelo-mobiledevice.so"), std::string::npos);
    EXPECT_NE(candidates[1].find("/lib/zebrelo/libzebrelo-mobiledevice.so"), std::string::npos);
    EXPECT_EQ(candidates[2], "libzebrelo-mobiledevice.so");
}

}  // namespace
