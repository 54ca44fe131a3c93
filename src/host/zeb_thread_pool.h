// BASThreadPool: ten workers and a scanner that hands waiting tasks to idle
// workers, oldest first. The queue has no limit and addTask never blocks.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class BASThreadPool {
public:
    using Task = std::function<void()>;

    explicit BASThreadPool(uint64_t workerCount = 10);
    ~BASThreadPool();
    BASThreadPool(const BASThreadPool&) = delete;
    BASThreadPool& operator=(const BASThreadPool&) = delete;

    void start();
    void addTask(Task task);

    // Only tests stop a pool; the process's pool runs until the process ends.
    void stopAndJoin();
    void setBusySleep(int milliseconds) { busySleep = milliseconds; }
    size_t queuedTasks() {
        std::lock_guard<std::mutex> hold(taskLock);
        return tasks.size();
    }

    static BASThreadPool* instance();
    static void setInstance(BASThreadPool* pool);

private:
    struct Worker {
        Task* task = nullptr;
        std::mutex lock;
        std::condition_variable wake;
        bool stop = false;
        std::thread thread;
    };

    void workerLoop(Worker* worker);
    void scanLoop();
    void dispatch(size_t& tasksLeft, size_t& idleLeft);

    bool stopped = false;
    bool finishWhenIdle = false;
    uint64_t workerCount;
    int busySleep = 500;
    std::condition_variable workerIdle;  // with idleLock: a worker joined idleWorkers
    bool stopping = false;               // with idleLock
    std::vector<Worker*> workers;
    std::deque<Worker*> idleWorkers;
    std::mutex idleLock;
    std::deque<Task*> tasks;
    std::mutex taskLock;
    std::condition_variable tasksAvailable;
    std::thread scanner;
};
