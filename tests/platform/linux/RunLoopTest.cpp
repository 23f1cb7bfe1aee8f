// The main run loop as GLib's default context. Each test turns the loop itself; nothing may happen before. The program is linked so that the first
// step of a source's dispatch passes through here.

#include <glib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>
#include <utility>
#include <vector>

#include "platform/CoreFoundation.h"
#include "platform/Dispatch.h"
#include "platform/Owned.h"
#include "platform/Posix.h"

namespace {

/// Runs once, when a source begins to be dispatched.
std::function<void()> sInDispatch;

}  // namespace

extern "C" {

void __real_g_source_set_ready_time(GSource* source, gint64 time);
CM_EXPORT void __wrap_g_source_set_ready_time(GSource* source, gint64 time);

void __wrap_g_source_set_ready_time(GSource* source, gint64 time) {
    if (time == -1 && sInDispatch) std::exchange(sInDispatch, nullptr)();
    __real_g_source_set_ready_time(source, time);
}

}  // extern "C"

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

/// A host whose loop runs on a thread of its own for the life of the object.
class LoopOnAThread {
public:
    LoopOnAThread()
        : loop_(g_main_loop_new(nullptr, FALSE)), thread_([this] {
              id_ = std::this_thread::get_id();
              g_main_loop_run(loop_);
          }) {
        while (!g_main_loop_is_running(loop_)) std::this_thread::yield();
        // The loop's thread is on the context once it has turned.
        InTheLoop([] {});
    }
    LoopOnAThread(const LoopOnAThread&) = delete;
    LoopOnAThread& operator=(const LoopOnAThread&) = delete;
    ~LoopOnAThread() {
        InTheLoop([this] { g_main_loop_quit(loop_); });
        thread_.join();
        g_main_loop_unref(loop_);
    }
    std::thread::id Id() const { return id_; }

    /// Runs `work` in the loop and waits for it.
    void InTheLoop(std::function<void()> work) {
        work_ = std::move(work);
        isDone_ = false;
        g_idle_add(
            [](gpointer data) -> gboolean {
                auto* const self = static_cast<LoopOnAThread*>(data);
                if (!self->isDone_) self->work_();
                self->isDone_ = true;
                return G_SOURCE_REMOVE;
            },
            this);
        while (!isDone_) std::this_thread::yield();
    }

private:
    GMainLoop* loop_;
    std::thread::id id_;
    std::function<void()> work_;
    std::atomic<bool> isDone_ = true;  // hands the rest over to the loop and back
    std::thread thread_;
};

int IsMainOnAnotherThread() {
    int isMain = 9;
    std::thread([&] { isMain = pthread_main_np(); }).join();
    return isMain;
}

TEST(MainThread, IsTheFirstOneWhileThereIsNoLoop) {
    std::thread([] { EXPECT_EQ(pthread_main_np(), 0); }).join();
    EXPECT_EQ(pthread_main_np(), 1);
}

TEST(MainThread, IsTheOneThatRunsTheLoop) {
    // With a source of this library on the loop, and without.
    for (const bool hasSource : {false, true}) {
        CFRunLoopSourceContext context = {};
        const Owned<CFRunLoopSourceRef> source(CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context));
        if (hasSource) CFRunLoopAddSource(CFRunLoopGetMain(), source.Get(), kCFRunLoopCommonModes);
        {
            LoopOnAThread host;
            host.InTheLoop([] { EXPECT_EQ(pthread_main_np(), 1); });
            EXPECT_EQ(pthread_main_np(), 0);
            EXPECT_EQ(IsMainOnAnotherThread(), 0);
        }
        // That thread is no more.
        EXPECT_EQ(pthread_main_np(), 1);
        EXPECT_EQ(IsMainOnAnotherThread(), 0);
        CFRunLoopSourceInvalidate(source.Get());
    }
}

TEST(MainThread, IsTheOneThatTurnsTheLoopNowAndThen) {
    CFRunLoopSourceContext context = {};
    const Owned<CFRunLoopSourceRef> source(CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context));
    CFRunLoopAddSource(CFRunLoopGetMain(), source.Get(), kCFRunLoopCommonModes);
    const auto turn = [] { CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.0, false); };
    const auto iterate = [] { g_main_context_iteration(nullptr, FALSE); };
    for (const std::function<void()>& once : {std::function<void()>(turn), std::function<void()>(iterate)}) {
        std::promise<void> hasTurned, mayEnd;
        std::thread host([&] {
            once();
            EXPECT_EQ(pthread_main_np(), 1);
            hasTurned.set_value();
            mayEnd.get_future().wait();
        });
        hasTurned.get_future().wait();
        EXPECT_EQ(pthread_main_np(), 0);
        mayEnd.set_value();
        host.join();
        EXPECT_EQ(pthread_main_np(), 1);
    }
    CFRunLoopSourceInvalidate(source.Get());
}

TEST(MainThread, RunsTheMainQueueWhereverTheLoopIs) {
    LoopOnAThread host;
    const auto where = [] {
        std::thread::id ranOn;
        dispatch_sync_f(dispatch_get_main_queue(), &ranOn, [](void* id) { *static_cast<std::thread::id*>(id) = std::this_thread::get_id(); });
        return ranOn;
    };
    EXPECT_EQ(where(), host.Id());
    std::thread([&] { EXPECT_EQ(where(), host.Id()); }).join();
    host.InTheLoop([&] { EXPECT_EQ(where(), host.Id()); });
}

TEST(MainThread, AloneTurnsTheLoop) {
    LoopOnAThread host;
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.0, false), kCFRunLoopRunTimedOut);
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, false), kCFRunLoopRunTimedOut);
    EXPECT_EQ(pthread_main_np(), 0);
}

TEST(MainThread, MayLoseASourceToAnotherThreadWhenItHasJustTurnedToIt) {
    LoopOnAThread host;
    Work work;
    CFRunLoopSourceContext context = work.Context();
    Owned<CFRunLoopSourceRef> source(CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context));
    CFRunLoopAddSource(CFRunLoopGetMain(), source.Get(), kCFRunLoopCommonModes);
    std::promise<void> hasTurned, isInvalid;
    int releasedThen = -1;
    host.InTheLoop([&] {
        sInDispatch = [&] {
            hasTurned.set_value();
            isInvalid.get_future().wait();
            releasedThen = work.released;
        };
    });
    CFRunLoopSourceSignal(source.Get());
    hasTurned.get_future().wait();
    CFRunLoopSourceInvalidate(source.Get());
    source.Reset(nullptr);
    isInvalid.set_value();
    host.InTheLoop([&] {
        EXPECT_EQ(releasedThen, 0) << "while the loop was at it";
        EXPECT_EQ(work.performed, 0);
        EXPECT_EQ(work.released, 1);
    });
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
