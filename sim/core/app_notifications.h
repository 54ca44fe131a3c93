// The device's notification centre as notification_proxy sees it: the
// installation proxy posts app changes, hosts post their own names, and
// every proxy connection hears what it observes.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace zsim {

class NotificationCenter {
public:
    using Listener = std::function<void(const std::string& name)>;

    // Listeners run on the posting thread and must not block.
    int subscribe(Listener listener);
    void unsubscribe(int id);
    void post(const std::string& name);

private:
    std::mutex mutex_;
    std::map<int, Listener> listeners_;
    int nextId_ = 1;
};

}  // namespace zsim
