// The task pool: order, hand-over, and an idle scanner that costs nothing.
#include "zeb_thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <vector>

using namespace std::chrono_literals;

namespace {

TEST(ThreadPool, TasksStartInTheOrderTheyWereAdded) {
    BASThreadPool pool(1);
    pool.setBusySleep(2);  // one worker: don't wait half a second between tasks
    pool.start();
    std::mutex lock;
    std::vector<int> order;
    std::atomic<int> done{0};
    for (int i = 0; i < 50; ++i) {
        pool.addTask([&, i] {
            std::lock_guard<std::mutex> hold(lock);
            order.push_back(i);
            ++done;
        });
    }
    for (int spin = 0; spin < 500 && done < 50; ++spin) std::this_thread::sleep_for(10ms);
    ASSERT_EQ(done.load(), 50);
    for (int i = 0; i < 50; ++i) EXPECT_EQ(order[i], i);
}

TEST(ThreadPool, TheEleventhTaskWaitsForAFreeWorkerAndThenRuns) {
    BASThreadPool pool;  // ten workers
    pool.start();
    std::mutex lock;
    std::condition_variable changed;
    int running = 0;
    bool release = false;
    std::atomic<bool> eleventhRan{false};
    for (int i = 0; i < 10; ++i) {
        pool.addTask([&] {
            std::unique_lock<std::mutex> hold(lock);
            ++running;
            changed.notify_all();
            changed.wait(hold, [&] { return release; });
        });
    }
    {
        std::unique_lock<std::mutex> hold(lock);
        ASSERT_TRUE(changed.wait_for(hold, 5s, [&] { return running == 10; }));
    }
    pool.addTask([&] { eleventhRan = true; });
    std::this_thread::sleep_for(700ms);
    EXPECT_FALSE(eleventhRan.load());
    {
        std::lock_guard<std::mutex> hold(lock);
        release = true;
    }
    changed.notify_all();
    for (int spin = 0; spin < 300 && !eleventhRan; ++spin) std::this_thread::sleep_for(10ms);
    EXPECT_TRUE(eleventhRan.load());
}

TEST(ThreadPool, NoHandOverIsLostUnderManySmallTasks) {
    BASThreadPool pool;
    pool.setBusySleep(1);
    pool.start();
    std::atomic<int> done{0};
    for (int i = 0; i < 5000; ++i) pool.addTask([&] { ++done; });
    for (int spin = 0; spin < 1000 && done < 5000; ++spin) std::this_thread::sleep_for(10ms);
    EXPECT_EQ(done.load(), 5000);
}

TEST(ThreadPool, AnIdlePoolUsesNoProcessorTime) {
    BASThreadPool pool;
    pool.start();
    std::this_thread::sleep_for(100ms);
    timespec before{}, after{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
    std::this_thread::sleep_for(1s);
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
    double used = (after.tv_sec - before.tv_sec) + (after.tv_nsec - before.tv_nsec) / 1e9;
    // A busy loop would burn most of a second; sleeping threads burn nothing.
    EXPECT_LT(used, 0.05);
}

}  // namespace
