// The main run loop as GLib's default context. Each test turns the loop itself; nothing may happen before.

#include <glib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/CoreFoundation.h"
#include "platform/Dispatch.h"
#include "platform/Owned.h"

namespace {

struct Work {
    std::atomic<int> performed = 0;
    std::thread::id thread;
    int scheduled = 0, cancelled = 0, retained = 0, released = 0;
    CFRunLoopSourceRef invalidate = nullptr;  // by the work itself

    CFRunLoopSourceContext Context() {
        CFRunLoopSourceContext context = {};
        context.info = this;
        context.retain = [](const void* info) {
            ++static_cast<Work*>(const_cast<void*>(info))->retained;
            return info;
        };
        context.release = [](const void* info) { ++static_cast<Work*>(const_cast<void*>(info))->released; };
        context.schedule = [](void* info, CFRunLoopRef, CFRunLoopMode) { ++static_cast<Work*>(info)->scheduled; };
        context.cancel = [](void* info, CFRunLoopRef, CFRunLoopMode) { ++static_cast<Work*>(info)->cancelled; };
        context.perform = [](void* info) {
            auto* const work = static_cast<Work*>(info);
            ++work->performed;
            work->thread = std::this_thread::get_id();
            if (work->invalidate) CFRunLoopSourceInvalidate(work->invalidate);
        };
        return context;
    }
};

/// Everything that is due now.
void Turn() {
    while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.0, false) == kCFRunLoopRunHandledSource) {
    }
}

class RunLoop : public testing::Test {
protected:
    RunLoop() : context(work.Context()), source(CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context)) {
        CFRunLoopAddSource(CFRunLoopGetMain(), source.Get(), kCFRunLoopCommonModes);
    }
    ~RunLoop() override {
        if (source) CFRunLoopSourceInvalidate(source.Get());
    }

    Work work;
    CFRunLoopSourceContext context;
    Owned<CFRunLoopSourceRef> source;
};

TEST_F(RunLoop, ASignalPerformsWhenTheLoopComesRoundAndNotBefore) {
    CFRunLoopSourceSignal(source.Get());
    EXPECT_EQ(work.performed, 0);
    Turn();
    EXPECT_EQ(work.performed, 1);
    Turn();
    EXPECT_EQ(work.performed, 1);
}

TEST_F(RunLoop, AnyNumberOfSignalsPerformOnce) {
    for (int i = 0; i < 100; ++i) CFRunLoopSourceSignal(source.Get());
    Turn();
    EXPECT_EQ(work.performed, 1);
    CFRunLoopSourceSignal(source.Get());
    Turn();
    EXPECT_EQ(work.performed, 2);
}

TEST_F(RunLoop, SignalsOfOtherThreadsPerformOnThisOneWithoutAWakeUp) {
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 1000; ++i) CFRunLoopSourceSignal(source.Get());
        });
    }
    // A plain GLib host that sleeps in its loop.
    GSource* const watch = g_timeout_source_new(1);
    struct Seen {
        Work* work;
        GMainLoop* loop;
    } seen{&work, loop};
    g_source_set_callback(
        watch,
        [](gpointer data) -> gboolean {
            if (static_cast<Seen*>(data)->work->performed == 0) return G_SOURCE_CONTINUE;
            g_main_loop_quit(static_cast<Seen*>(data)->loop);
            return G_SOURCE_REMOVE;
        },
        &seen, nullptr);
    g_source_attach(watch, nullptr);
    g_source_unref(watch);
    g_main_loop_run(loop);
    for (std::thread& thread : threads) thread.join();
    Turn();
    EXPECT_EQ(work.thread, std::this_thread::get_id());
    EXPECT_GE(work.performed, 1);
    EXPECT_LE(work.performed, 4000);
    g_main_loop_unref(loop);
}

TEST_F(RunLoop, AnInvalidSourceNeverPerformsAgain) {
    EXPECT_TRUE(CFRunLoopSourceIsValid(source.Get()));
    CFRunLoopSourceSignal(source.Get());
    CFRunLoopSourceInvalidate(source.Get());
    EXPECT_FALSE(CFRunLoopSourceIsValid(source.Get()));
    CFRunLoopSourceSignal(source.Get());
    CFRunLoopAddSource(CFRunLoopGetMain(), source.Get(), kCFRunLoopCommonModes);
    Turn();
    EXPECT_EQ(work.performed, 0);
    EXPECT_EQ(work.scheduled, 1);
    EXPECT_EQ(work.cancelled, 1);
}

TEST_F(RunLoop, TheWorkMayInvalidateItsOwnSourceWhichNobodyElseHolds) {
    work.invalidate = source.Get();
    CFRunLoopSourceSignal(source.Get());
    source.Reset(nullptr);
    Turn();
    EXPECT_EQ(work.performed, 1);
    EXPECT_EQ(work.cancelled, 1);
    EXPECT_EQ(work.retained, 1);
    EXPECT_EQ(work.released, 1);
}

TEST_F(RunLoop, TheLoopKeepsItsSourcesAlive) {
    const CFRunLoopSourceRef kept = source.Get();
    source.Reset(nullptr);
    EXPECT_EQ(work.released, 0);
    CFRunLoopSourceSignal(kept);
    Turn();
    EXPECT_EQ(work.performed, 1);
    CFRunLoopSourceInvalidate(kept);
    EXPECT_EQ(work.released, 1);
}

TEST_F(RunLoop, ASignalBeforeTheSourceIsAddedIsKept) {
    Work later;
    CFRunLoopSourceContext laterContext = later.Context();
    const Owned<CFRunLoopSourceRef> second(CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &laterContext));
    CFRunLoopSourceSignal(second.Get());
    Turn();
    EXPECT_EQ(later.performed, 0);
    CFRunLoopAddSource(CFRunLoopGetMain(), second.Get(), kCFRunLoopCommonModes);
    Turn();
    EXPECT_EQ(later.performed, 1);
    CFRunLoopSourceInvalidate(second.Get());
}

TEST_F(RunLoop, ThePumpSaysWhetherThereWasSomethingToDo) {
    Turn();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.0, false), kCFRunLoopRunTimedOut);
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true), kCFRunLoopRunTimedOut);
    CFRunLoopSourceSignal(source.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.0, false), kCFRunLoopRunHandledSource);
    CFRunLoopSourceSignal(source.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 30.0, true), kCFRunLoopRunHandledSource);
    EXPECT_EQ(work.performed, 2);
}

TEST_F(RunLoop, TheMainQueueRunsOnThisThreadWhileAnotherWaits) {
    std::thread::id ranOn;
    std::atomic<bool> isBack = false;
    std::thread other([&] {
        dispatch_sync_f(dispatch_get_main_queue(), &ranOn, [](void* id) { *static_cast<std::thread::id*>(id) = std::this_thread::get_id(); });
        isBack = true;
    });
    while (!isBack) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
    other.join();
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    // On this thread it runs in place.
    int ran = 0;
    dispatch_sync_f(dispatch_get_main_queue(), &ran, [](void* count) { ++*static_cast<int*>(count); });
    EXPECT_EQ(ran, 1);
}

TEST_F(RunLoop, ManyThreadsMayWaitForTheMainQueue) {
    std::atomic<int> back = 0;
    int counted = 0;  // by this thread alone
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i) dispatch_sync_f(dispatch_get_main_queue(), &counted, [](void* count) { ++*static_cast<int*>(count); });
            ++back;
        });
    }
    while (back < 8) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(counted, 400);
}

}  // namespace
