#include "zeb_thread_pool.h"

#include <chrono>
#include <cstdio>

namespace {
BASThreadPool* processPool = nullptr;
}

BASThreadPool* BASThreadPool::instance() { return processPool; }
void BASThreadPool::setInstance(BASThreadPool* pool) { processPool = pool; }

BASThreadPool::BASThreadPool(uint64_t count) : workerCount(count) {}

BASThreadPool::~BASThreadPool() { stopAndJoin(); }

void BASThreadPool::start() {
    for (uint64_t i = 0; i < workerCount; ++i) {
        auto* worker = new Worker;
        workers.push_back(worker);
        worker->thread = std::thread([this, worker] { workerLoop(worker); });
    }
    scanner = std::thread([this] { scanLoop(); });
}

void BASThreadPool::addTask(Task task) {
    {
        std::lock_guard<std::mutex> hold(taskLock);
        tasks.push_back(new Task(std::move(task)));
    }
    tasksAvailable.notify_one();
}

void BASThreadPool::workerLoop(Worker* worker) {
    std::unique_lock<std::mutex> hold(worker->lock);
    while (!worker->stop) {
        Task* task = worker->task;
        worker->task = nullptr;
        hold.unlock();
        if (task) {
            (*task)();
            delete task;
        }
        // Into the idle list before taking our own lock: the scanner takes the
        // list's lock first and a worker's second, and so does everyone.
        {
            std::lock_guard<std::mutex> idle(idleLock);
            idleWorkers.push_back(worker);
        }
        workerIdle.notify_one();
        hold.lock();
        if (worker->stop) break;
        // A task handed over between the push above and this wait must not
        // be lost: the scanner stores it under our lock, so test it here.
        worker->wake.wait(hold, [worker] { return worker->task != nullptr || worker->stop; });
    }
    hold.unlock();
    printf("thread finish: %lu\n", static_cast<unsigned long>(std::hash<std::thread::id>{}(std::this_thread::get_id()) & 0xFFFFFFFF));
}

void BASThreadPool::dispatch(size_t& tasksLeft, size_t& idleLeft) {
    std::lock_guard<std::mutex> idle(idleLock);
    if (idleWorkers.empty()) {
        idleLeft = 0;
        return;
    }
    {
        std::lock_guard<std::mutex> queued(taskLock);
        if (tasks.empty()) {
            tasksLeft = 0;
        } else {
            Task* task = tasks.front();
            tasks.pop_front();
            Worker* worker = idleWorkers.front();
            idleWorkers.pop_front();
            {
                std::lock_guard<std::mutex> handOver(worker->lock);
                worker->task = task;
            }
            worker->wake.notify_one();
            tasksLeft = tasks.size();
        }
    }
    idleLeft = idleWorkers.size();
}

void BASThreadPool::scanLoop() {
    size_t tasksLeft = 0;
    size_t idleLeft = 0;
    for (;;) {
        {
            std::lock_guard<std::mutex> queued(taskLock);
            if (stopped) break;
        }
        dispatch(tasksLeft, idleLeft);
        if (finishWhenIdle && tasksLeft == 0 && idleLeft == workerCount) break;
        if (tasksLeft == 0) {
            std::unique_lock<std::mutex> queued(taskLock);
            tasksAvailable.wait(queued, [this] { return !tasks.empty() || stopped; });
            tasksLeft = tasks.size();
        } else if (idleLeft == 0) {
            // Every worker is busy: the next one to finish wakes us, the busy
            // sleep is only the longest wait.
            std::unique_lock<std::mutex> idle(idleLock);
            workerIdle.wait_for(idle, std::chrono::milliseconds(busySleep),
                                [this] { return !idleWorkers.empty() || stopping; });
        }
    }
    printf("BASThreadPool::ScanTask end\n");
}

void BASThreadPool::stopAndJoin() {
    {
        std::lock_guard<std::mutex> queued(taskLock);
        if (stopped && !scanner.joinable()) return;
        stopped = true;
    }
    {
        std::lock_guard<std::mutex> idle(idleLock);
        stopping = true;
    }
    tasksAvailable.notify_all();
    workerIdle.notify_all();
    if (scanner.joinable()) scanner.join();
    for (Worker* worker : workers) {
        {
            std::lock_guard<std::mutex> hold(worker->lock);
            worker->stop = true;
        }
        worker->wake.notify_one();
        worker->thread.join();
        delete worker->task;
        delete worker;
    }
    workers.clear();
    for (Task* task : tasks) delete task;
    tasks.clear();
}
