#include "zeb_provider_world.h"

#include <chrono>
#include <thread>

ProviderWorld& ProviderWorld::Get() {
    static ProviderWorld* world = [] {
        auto* w = new ProviderWorld();
        ::testing::AddGlobalTestEnvironment(w);  // gtest owns it from here
        return w;
    }();
    return *world;
}

std::string ProviderWorld::Profile(const std::string& name) { return std::string(ZEB_SIM_PROFILES) + "/" + name; }

void ProviderWorld::SetUp() {
    ASSERT_TRUE(sim.Start(ZEB_SIM_PATH, {Profile("iphone13-ios17")})) << "zebrelo-sim did not start";
    setenv("ZEBRELO_DEVICE_PROVIDER", ZEB_PROVIDER_PATH, 1);
    ASSERT_TRUE(md().Init());
    ASSERT_EQ(md().AMDeviceNotificationSubscribe(OnNotification, 0, 0, this, &subscription_), 0);
    // The run loop keeps its thread for the life of the process, as in the worker.
    std::thread([] { CMobileExportFun::GetInstance().CFRunLoopRun(); }).detach();
    trustedIphone = WaitFor(kZebDeviceAttached, 0).device;
    ASSERT_NE(trustedIphone, nullptr) << "the simulator's first device never arrived";
}

void ProviderWorld::TearDown() {
    // No notification may reach this object once gtest has deleted it: the
    // simulator's stop would otherwise report its devices leaving.
    if (subscription_) md().AMDeviceNotificationUnsubscribe(subscription_);
    sim.Stop();
    // Whatever the run loop delivered before is ordered before the
    // destructor through this lock.
    std::lock_guard<std::mutex> hold(lock_);
}

void ProviderWorld::OnNotification(AMDeviceNotificationInfo* info, void* context) {
    auto* world = static_cast<ProviderWorld*>(context);
    // Notified under the lock, so that the teardown's taking of it orders
    // this whole call before the destructor.
    std::lock_guard<std::mutex> hold(world->lock_);
    world->events_.push_back({info->device, info->message});
    world->arrived_.notify_all();
}

size_t ProviderWorld::EventCount() {
    std::lock_guard<std::mutex> hold(lock_);
    return events_.size();
}

std::vector<DeviceEvent> ProviderWorld::EventsSince(size_t index) {
    std::lock_guard<std::mutex> hold(lock_);
    return index < events_.size() ? std::vector<DeviceEvent>(events_.begin() + index, events_.end())
                                  : std::vector<DeviceEvent>{};
}

DeviceEvent ProviderWorld::WaitFor(uint32_t message, size_t index, AMDeviceRef device, int timeoutMs) {
    std::unique_lock<std::mutex> hold(lock_);
    DeviceEvent found{nullptr, 0};
    arrived_.wait_for(hold, std::chrono::milliseconds(timeoutMs), [&] {
        for (size_t i = index; i < events_.size(); ++i) {
            if (events_[i].message == message && (!device || events_[i].device == device)) {
                found = events_[i];
                return true;
            }
        }
        return false;
    });
    return found;
}

AMDeviceRef ProviderWorld::Attach(const std::string& target, std::string* udid) {
    size_t before = EventCount();
    std::string answer = sim.Control("attach " + target);
    EXPECT_EQ(answer.rfind("ok", 0), 0u) << answer;
    if (udid && answer.size() > 3) *udid = answer.substr(3);
    return WaitFor(kZebDeviceAttached, before).device;
}

bool ProviderWorld::Detach(const std::string& udid, AMDeviceRef device) {
    size_t before = EventCount();
    std::string answer = sim.Control("detach " + udid);
    EXPECT_EQ(answer, "ok");
    return WaitFor(kZebDeviceDetached, before, device).device == device;
}

DeviceSession::DeviceSession(AMDeviceRef device) : device_(device) {
    auto& md = CMobileExportFun::GetInstance();
    connected_ = md.AMDeviceConnect(device) == 0;
    // A device that trusts every host pairs at once, without a question.
    if (connected_ && !md.AMDeviceIsPaired(device)) md.AMDevicePair(device);
    ok_ = connected_ && md.AMDeviceIsPaired(device) && md.AMDeviceValidatePairing(device) == 0 &&
          md.AMDeviceStartSession(device) == 0;
}

DeviceSession::~DeviceSession() {
    auto& md = CMobileExportFun::GetInstance();
    if (ok_) md.AMDeviceStopSession(device_);
    if (connected_) md.AMDeviceDisconnect(device_);
}

CFStringRef Key(const char* text) { return CMobileExportFun::GetInstance().__CFStringMakeConstantString(text); }

std::string TextOf(CFTypeRef value) {
    auto& md = CMobileExportFun::GetInstance();
    if (!value || md.CFGetTypeID(value) != kZebCFStringTypeID) return "<none>";
    std::string buffer(md.CFStringGetLength(value) * 4 + 1, '\0');
    if (!md.CFStringGetCString(value, buffer.data(), static_cast<CFIndex>(buffer.size()), kZebCFStringEncodingUTF8))
        return "<none>";
    return buffer.c_str();
}

// Registers the environment before main runs the tests.
static ProviderWorld& g_world = ProviderWorld::Get();
