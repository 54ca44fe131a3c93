// "com.apple.mobile.notification_proxy": the host observes and posts
// notification names (no answers); the device relays what the host
// observes as {Command: RelayNotification, Name} and answers Shutdown with
// ProxyDeath before it closes. Relays come from whichever thread posts
// (installation_proxy on app changes, another host's PostNotification), so
// they are queued and written by a thread of this connection.
#include "../service.h"
#include "core/app_registry.h"
#include "core/app_service_frames.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace zsim {
namespace {

class NotificationProxy {
public:
    NotificationProxy(ServiceStream& stream, const ServiceContext& ctx)
        : stream_(stream), ctx_(ctx), center_(appRegistryFor(ctx).notifications()) {
        subscription_ = center_.subscribe([this](const std::string& name) { relay(name); });
        writer_ = std::thread([this] { writeRelays(); });
    }

    ~NotificationProxy() {
        center_.unsubscribe(subscription_);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_all();
        writer_.join();
    }

    void run() {
        std::vector<char> scratch;
        while (!deviceClosing(ctx_)) {
            Frame request = readFrame(stream_, scratch);
            if (!request.plist) return;
            const std::string command = dictString(request.plist.get(), "Command").value_or("");
            const std::string name = dictString(request.plist.get(), "Name").value_or("");
            if (command == "ObserveNotification" && !name.empty()) {
                std::lock_guard<std::mutex> lock(mutex_);
                observed_.insert(name);
            } else if (command == "PostNotification" && !name.empty()) {
                center_.post(name);
            } else if (command == "Shutdown") {
                PlistPtr death = adopt(plist_new_dict());
                plist_dict_set_item(death.get(), "Command", plist_new_string("ProxyDeath"));
                std::lock_guard<std::mutex> lock(writeMutex_);
                sendFrame(stream_, death.get(), false);
                return;
            }
        }
    }

private:
    void relay(const std::string& name) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!observed_.count(name)) return;
        pending_.push_back(name);
        wake_.notify_all();
    }

    void writeRelays() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            wake_.wait_for(lock, std::chrono::milliseconds(200), [this] { return stopping_ || !pending_.empty(); });
            if (stopping_ || deviceClosing(ctx_)) return;
            while (!pending_.empty()) {
                const std::string name = pending_.front();
                pending_.pop_front();
                lock.unlock();
                PlistPtr m = adopt(plist_new_dict());
                plist_dict_set_item(m.get(), "Command", plist_new_string("RelayNotification"));
                plist_dict_set_item(m.get(), "Name", plist_new_string(name.c_str()));
                bool sent = false;
                if (waitWhileStalled(ctx_)) {
                    std::lock_guard<std::mutex> writeLock(writeMutex_);
                    sent = sendFrame(stream_, m.get(), false);
                }
                lock.lock();
                if (!sent) return;
            }
        }
    }

    ServiceStream& stream_;
    const ServiceContext& ctx_;
    NotificationCenter& center_;
    int subscription_ = 0;
    std::mutex mutex_;
    std::mutex writeMutex_;
    std::condition_variable wake_;
    std::set<std::string> observed_;
    std::deque<std::string> pending_;
    bool stopping_ = false;
    std::thread writer_;
};

void serveNotificationProxy(ServiceStream& stream, const ServiceContext& ctx) {
    NotificationProxy proxy(stream, ctx);
    proxy.run();
}

ZSIM_REGISTER_SERVICE("com.apple.mobile.notification_proxy", serveNotificationProxy);

}  // namespace
}  // namespace zsim
