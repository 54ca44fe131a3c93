#include "zeb_notifications.h"

#include <usbmuxd.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "zeb_exports.h"
#include "zeb_run_loop.h"

namespace zebprov {

namespace {

struct Subscription {
    AMDeviceNotificationCallback callback = nullptr;
    void* context = nullptr;
    usbmuxd_subscription_context_t mux = nullptr;
    std::atomic<bool> active{true};
};

std::mutex& SubscriptionsLock() {
    static auto* lock = new std::mutex();
    return *lock;
}

// Subscriptions are never freed: queued records and usbmuxd's thread may
// still point at one after it was cancelled.
std::vector<Subscription*>& Subscriptions() {
    static auto* all = new std::vector<Subscription*>();
    return *all;
}

void Deliver(Subscription* subscription, AMDeviceRef handle, uint32_t message) {
    PostToRunLoop([subscription, handle, message] {
        if (!subscription->active) return;
        AMDeviceNotificationInfo info{handle, message, reinterpret_cast<AMDeviceNotificationRef>(subscription)};
        subscription->callback(&info, subscription->context);
    });
}

void OnMuxEvent(const usbmuxd_event_t* event, void* userData) {
    auto* subscription = static_cast<Subscription*>(userData);
    if (!event || !subscription->active) return;
    const usbmuxd_device_info_t& info = event->device;
    if (event->event == UE_DEVICE_ADD) {
        auto device = AttachDevice(info.handle, info.udid, info.conn_type == CONNECTION_TYPE_NETWORK);
        Deliver(subscription, device->handle, kZebDeviceAttached);
    } else if (event->event == UE_DEVICE_REMOVE) {
        if (auto device = DetachDevice(info.handle)) Deliver(subscription, device->handle, kZebDeviceDetached);
    }
    // A "paired" event is not passed on: the trust watch posts the answer
    // itself once the pair record is saved.
}

}  // namespace

void PostDeviceMessage(const std::shared_ptr<Device>& device, uint32_t message) {
    std::lock_guard<std::mutex> hold(SubscriptionsLock());
    for (Subscription* s : Subscriptions()) {
        if (s->active) Deliver(s, device->handle, message);
    }
}

}  // namespace zebprov

using namespace zebprov;

extern "C" {

int32_t AMDeviceNotificationSubscribe(AMDeviceNotificationCallback callback, uint32_t, uint32_t, void* context,
                                      AMDeviceNotificationRef* out) {
    if (!callback) return kZebAMDBadArgument;
    auto* subscription = new Subscription();
    subscription->callback = callback;
    subscription->context = context;
    {
        std::lock_guard<std::mutex> hold(SubscriptionsLock());
        Subscriptions().push_back(subscription);
    }
    if (usbmuxd_events_subscribe(&subscription->mux, OnMuxEvent, subscription) != 0) {
        subscription->active = false;
        return kZebAMDUndefinedError;
    }
    if (out) *out = reinterpret_cast<AMDeviceNotificationRef>(subscription);
    return kZebAMDSuccess;
}

int32_t AMDeviceNotificationUnsubscribe(AMDeviceNotificationRef ref) {
    auto* subscription = reinterpret_cast<Subscription*>(ref);
    std::lock_guard<std::mutex> hold(SubscriptionsLock());
    for (Subscription* s : Subscriptions()) {
        if (s == subscription && s->active.exchange(false)) {
            usbmuxd_events_unsubscribe(s->mux);
            return kZebAMDSuccess;
        }
    }
    return kZebAMDBadArgument;
}

int32_t AMDeviceGetInterfaceType(AMDeviceRef handle) {
    // Answers for gone devices too: the detach notification is checked with it.
    auto device = FindDevice(handle);
    if (!device) return 0;
    return device->network ? kZebInterfaceNetwork : kZebInterfaceUSB;
}

}  // extern "C"
