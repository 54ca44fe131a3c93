#include "zeb_test_module.h"

#include "zeb_module_basicinfo.h"
#include "zeb_thread_pool.h"

#include <glog/logging.h>

#include "zeb_versions.h"

#include <cstdio>
#include <ctime>

namespace zeb {

namespace {

void printDate(const char* label, time_t when) {
    tm local{};
    localtime_r(&when, &local);
    char text[64];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    printf("%s%s\n", label, text);
}

}  // namespace

void runTestModule() {
    const char* versions[] = {"10.2.1", "9.1.1", "8.1.2", "3.1.2"};
    for (const char* version : versions)
        printf("version %s vs 9.0: %d\n", version, compareVersions(version, "9.0"));
    // The device clock counts from 2001-01-01 UTC.
    const time_t appleEpoch = 978307200;
    printDate("date1: ", appleEpoch);
    printDate("date2: ", appleEpoch + 500000000);
    printDate("date3: ", time(nullptr));
    fflush(stdout);
}

namespace {
void runDeviceSelfTest(const DevicePtr& device) { printDeviceOverview(*device); }
}  // namespace

void runTestModule(const DevicePtr& device) {
    LOG(INFO) << "TestModule Begin";
    DevicePtr held = device;
    BASThreadPool::instance()->addTask([held] { runDeviceSelfTest(held); });
    LOG(INFO) << "TestModule Finish";
}

}  // namespace zeb
