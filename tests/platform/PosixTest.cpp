#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/Posix.h"

namespace {

TEST(SpinLock, IsHeldByOneThreadAtATime) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 20000;
    OSSpinLock lock = OS_SPINLOCK_INIT;
    // Plain on purpose: the lock alone orders the threads.
    long count = 0;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                OSSpinLockLock(&lock);
                ++count;
                OSSpinLockUnlock(&lock);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(count, kThreads * kRounds);
    EXPECT_EQ(lock, OS_SPINLOCK_INIT);
}

TEST(SpinLock, AWaitingThreadGoesOnWhenTheHolderIsDone) {
    OSSpinLock lock = OS_SPINLOCK_INIT;
    std::atomic<bool> isWaiting = false;
    bool changed = false;
    OSSpinLockLock(&lock);
    EXPECT_NE(lock, OS_SPINLOCK_INIT);
    std::thread waiter([&] {
        isWaiting = true;
        OSSpinLockLock(&lock);
        EXPECT_TRUE(changed);
        OSSpinLockUnlock(&lock);
    });
    while (!isWaiting) std::this_thread::yield();
    // Long enough for the waiter to pass from spinning to yielding, whatever the machine.
    for (int i = 0; i < 2000; ++i) std::this_thread::yield();
    changed = true;
    OSSpinLockUnlock(&lock);
    waiter.join();
}

}  // namespace
