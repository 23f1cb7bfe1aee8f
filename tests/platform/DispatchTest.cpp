#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/Dispatch.h"

namespace {

constexpr int kThreads = 8;

/// Runs `work` on several threads that all start at about the same moment.
template <typename Work>
void OnThreads(Work work) {
    std::atomic<int> waiting = kThreads;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            --waiting;
            while (waiting != 0) std::this_thread::yield();
            work();
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST(DispatchOnce, RunsTheWorkOnceWithItsContext) {
    static dispatch_once_t predicate;
    int runs = 0;
    for (int i = 0; i < 3; ++i) dispatch_once_f(&predicate, &runs, [](void* context) { ++*static_cast<int*>(context); });
    EXPECT_EQ(runs, 1);
}

TEST(DispatchOnce, EveryThreadSeesTheFinishedWork) {
    for (int round = 0; round < 300; ++round) {
        struct State {
            dispatch_once_t predicate = 0;
            // Plain on purpose: the predicate alone orders the threads.
            int runs = 0;
            int values[16] = {};
        } state;
        std::atomic<int> wrong = 0;
        OnThreads([&] {
            // NOLINTNEXTLINE(clang-analyzer-osx.API): no thread looks at the predicate after its round.
            dispatch_once_f(&state.predicate, &state, [](void* context) {
                auto* own = static_cast<State*>(context);
                ++own->runs;
                for (int& value : own->values) {
                    std::this_thread::yield();
                    value = 5;
                }
            });
            for (const int value : state.values) wrong += value != 5;
        });
        ASSERT_EQ(state.runs, 1);
        ASSERT_EQ(wrong, 0);
    }
}

TEST(DispatchOnce, PredicatesAreIndependent) {
    static dispatch_once_t inner;
    static dispatch_once_t outer;
    static int runs;
    dispatch_once_f(&outer, nullptr, [](void*) { dispatch_once_f(&inner, nullptr, [](void*) { ++runs; }); });
    dispatch_once_f(&inner, nullptr, [](void*) { ++runs; });
    EXPECT_EQ(runs, 1);
}

TEST(DispatchQueue, RunsOneWorkAtATime) {
    struct State {
        // Plain on purpose: the queue alone orders the threads.
        long count = 0;
        int inside = 0;
        bool overlapped = false;
    } state;
    const dispatch_queue_t queue = dispatch_queue_create("com.brenwick.test", DISPATCH_QUEUE_SERIAL);
    ASSERT_NE(queue, nullptr);
    OnThreads([&] {
        for (int i = 0; i < 5000; ++i) {
            dispatch_sync_f(queue, &state, [](void* context) {
                auto* own = static_cast<State*>(context);
                own->overlapped |= ++own->inside != 1;
                ++own->count;
                --own->inside;
            });
        }
    });
    EXPECT_EQ(state.count, kThreads * 5000);
    EXPECT_FALSE(state.overlapped);
}

TEST(DispatchQueue, RunsOnTheCallersThreadBeforeItReturns) {
    const dispatch_queue_t queue = dispatch_queue_create(nullptr, DISPATCH_QUEUE_SERIAL);
    std::thread::id ranOn;
    dispatch_sync_f(queue, &ranOn, [](void* context) { *static_cast<std::thread::id*>(context) = std::this_thread::get_id(); });
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(DispatchQueue, QueuesDoNotWaitForEachOther) {
    static dispatch_queue_t inner;
    inner = dispatch_queue_create("inner", DISPATCH_QUEUE_SERIAL);
    const dispatch_queue_t outer = dispatch_queue_create("outer", DISPATCH_QUEUE_SERIAL);
    ASSERT_NE(inner, outer);
    bool ran = false;
    dispatch_sync_f(outer, &ran, [](void* context) { dispatch_sync_f(inner, context, [](void* same) { *static_cast<bool*>(same) = true; }); });
    EXPECT_TRUE(ran);
}

TEST(DispatchQueue, ManyThreadsMayCreateQueues) {
    OnThreads([] {
        for (int i = 0; i < 100; ++i) EXPECT_NE(dispatch_queue_create("many", DISPATCH_QUEUE_SERIAL), nullptr);
    });
}

}  // namespace
