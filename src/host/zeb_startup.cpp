#include "zeb_startup.h"

#include "zeb_client.h"
#include "zeb_command_table.h"
#include "zeb_device_monitor.h"
#include "zeb_logging.h"
#include "zeb_paths.h"
#include "zeb_settings.h"
#include "zeb_task_table.h"
#include "zeb_test_module.h"
#include "zeb_thread_pool.h"

#include <glog/logging.h>

namespace zeb {

void startUp() {
    auto* pool = new BASThreadPool;  // lives until the process ends
    pool->start();
    BASThreadPool::setInstance(pool);

    globalTaskTable();

    // The table is ready before the parent can send: a command sent at once
    // after the link comes up is not dropped.
    buildCommandTable();

    // An unreachable parent isn't fatal: the watcher ends the process.
    bool connected = ZEBClient::instance()->connectToParent();
    LOG(INFO) << "connectToParent: " << (connected ? "connected" : "no link");

    ZEBDeviceMonitor& monitor = ZEBDeviceMonitor::instance();
    {
        std::lock_guard<std::mutex> hold(monitor.lock);
        monitor.AddCallback(ZEBClient::instance());
    }
    int32_t started = 0;
    {
        std::lock_guard<std::mutex> hold(monitor.lock);
        started = monitor.Start();
    }
    if (started != 0) {
        LOG(INFO) << "device monitor start failed: " << started;
        ZEBClient::instance()->sendStatusEvent(static_cast<uint32_t>(started), 0);
    }

    if (settings().testModuleEnabled) pool->addTask([] { runTestModule(); });
}

void shutDown() {
    stopLogging();
    deleteTree(workFolder(false));
}

}  // namespace zeb
