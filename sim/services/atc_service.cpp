// "com.apple.atc" (AirTraffic). The device stays quiet until the host's
// first PowerAssertion, then behaves as the profile's "AirTraffic" "Mode"
// says:
//   metrics   a Ping, then AssetMetrics with the profile's "AssetMetrics"
//             as Params (the default);
//   ping      a Ping every "PingInterval" seconds (default 1) and nothing else;
//   idleexit  IdleExit, then the device ends the connection.
// A sync request is refused with SyncFailed: the simulator cannot check the
// host's sync credentials. Other host commands need no answer.
#include "../service.h"
#include "atc_frames.h"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

namespace zsim {
namespace {

using namespace std::chrono_literals;

struct Settings {
    std::string mode = "metrics";
    plist_t metrics = nullptr;  // borrowed from the profile
    std::chrono::milliseconds pingInterval{1000};
};

Settings readSettings(plist_t profile) {
    Settings s;
    plist_t air = profile && plist_get_node_type(profile) == PLIST_DICT ? plist_dict_get_item(profile, "AirTraffic")
                                                                         : nullptr;
    if (!air || plist_get_node_type(air) != PLIST_DICT) return s;
    if (plist_t mode = plist_dict_get_item(air, "Mode"); mode && plist_get_node_type(mode) == PLIST_STRING) {
        char* text = nullptr;
        plist_get_string_val(mode, &text);
        if (text) s.mode = text;
        free(text);
    }
    if (plist_t m = plist_dict_get_item(air, "AssetMetrics"); m && plist_get_node_type(m) == PLIST_DICT)
        s.metrics = m;
    if (plist_t p = plist_dict_get_item(air, "PingInterval")) {
        double seconds = 0;
        if (plist_get_node_type(p) == PLIST_REAL) plist_get_real_val(p, &seconds);
        if (plist_get_node_type(p) == PLIST_UINT) {
            uint64_t v = 0;
            plist_get_uint_val(p, &v);
            seconds = static_cast<double>(v);
        }
        if (seconds > 0.01 && seconds < 3600) s.pingInterval = std::chrono::milliseconds(static_cast<int>(seconds * 1000));
    }
    return s;
}

bool sendCommand(atc::MessageWriter& out, const char* command, plist_t params = nullptr) {
    plist_t m = atc::makeMessage(command, params);
    const bool ok = out.send(m);
    plist_free(m);
    return ok;
}

class AirTrafficSession {
public:
    AirTrafficSession(ServiceStream& stream, const ServiceContext& ctx)
        : stream_(stream), ctx_(ctx), out_(stream), settings_(readSettings(ctx.profile)) {}

    ~AirTrafficSession() { stopPinger(); }

    void run() {
        std::vector<char> scratch;
        while (!closing()) {
            plist_t message = atc::readMessage(stream_, scratch);
            if (!message) return;  // the host closed, or spoke something else
            const std::string command = commandOf(message);
            plist_free(message);
            if (!waitWhileStalled()) return;
            if (command == "PowerAssertion" && !started_) {
                started_ = true;
                if (!begin()) return;
            } else if (command == "RequestingSync") {
                if (!refuseSync()) return;
            }
        }
    }

private:
    static std::string commandOf(plist_t message) {
        plist_t c = plist_dict_get_item(message, "Command");
        if (!c || plist_get_node_type(c) != PLIST_STRING) return {};
        // Up to a NUL inside: libplist's copying getter aborts on one.
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(c, &length);
        return text ? std::string(text, strnlen(text, length)) : std::string();
    }

    bool closing() const { return ctx_.closing && ctx_.closing->load(); }

    bool waitWhileStalled() const {
        while (ctx_.stalled && ctx_.stalled->load() && !closing()) std::this_thread::sleep_for(20ms);
        return !closing();
    }

    // False ends the connection.
    bool begin() {
        if (settings_.mode == "idleexit") {
            sendCommand(out_, "IdleExit");
            return false;
        }
        if (settings_.mode == "ping") {
            pinger_ = std::thread([this] { pingUntilStopped(); });
            return true;
        }
        // Once the assertion is taken the device sends its metrics first;
        // the keep-alive pings follow.
        return sendCommand(out_, "AssetMetrics", settings_.metrics ? plist_copy(settings_.metrics) : nullptr) &&
               sendCommand(out_, "Ping");
    }

    bool refuseSync() {
        plist_t params = plist_new_dict();
        plist_dict_set_item(params, "ErrorCode", plist_new_uint(12));
        return sendCommand(out_, "SyncFailed", params);
    }

    void pingUntilStopped() {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!stop_ && !closing()) {
            lock.unlock();
            const bool stalled = ctx_.stalled && ctx_.stalled->load();
            if (!stalled && !sendCommand(out_, "Ping")) return;
            lock.lock();
            wake_.wait_for(lock, settings_.pingInterval, [this] { return stop_; });
        }
    }

    void stopPinger() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        wake_.notify_all();
        if (pinger_.joinable()) pinger_.join();
    }

    ServiceStream& stream_;
    const ServiceContext& ctx_;
    atc::MessageWriter out_;
    Settings settings_;
    bool started_ = false;
    std::thread pinger_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stop_ = false;
};

void serveAirTraffic(ServiceStream& stream, const ServiceContext& ctx) {
    AirTrafficSession session(stream, ctx);
    session.run();
}

ZSIM_REGISTER_SERVICE("com.apple.atc", serveAirTraffic);

}  // namespace
}  // namespace zsim
