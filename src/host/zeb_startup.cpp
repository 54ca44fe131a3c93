#include "zeb_startup.h"

#include "zeb_client.h"
#include "zeb_command_table.h"
#include "zeb_logging.h"
#include "zeb_paths.h"
#include "zeb_settings.h"
#include "zeb_thread_pool.h"

#include <glog/logging.h>

namespace zeb {

void startUp() {
    auto* pool = new BASThreadPool;  // lives until the process ends
    pool->start();
    BASThreadPool::setInstance(pool);

    // An unreachable parent isn't fatal: the watcher ends the process.
    bool connected = ZEBClient::instance()->connectToParent();
    LOG(INFO) << "connectToParent: " << (connected ? "connected" : "no link");

    buildCommandTable();

    if (settings().testModuleEnabled) pool->addTask([] { runTestModule(); });
}

void shutDown() {
    stopLogging();
    deleteTree(workFolder(false));
}

}  // namespace zeb
