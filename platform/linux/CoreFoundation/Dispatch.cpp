#include "platform/Dispatch.h"

#include <glib.h>

#include <atomic>
#include <deque>
#include <mutex>
#include <new>

#include "platform/ForkSection.h"
#include "platform/MadeOnce.h"
#include "platform/Posix.h"
#include "platform/linux/CoreFoundation/MainContext.h"

namespace {

constexpr dispatch_once_t kRunning = 1;
constexpr dispatch_once_t kDone = ~dispatch_once_t{0};

/// What is raised in the work stops the program here, as it must not cross the caller's C frames.
void Run(dispatch_function_t work, void* context) noexcept {
    work(context);
}

}  // namespace

struct dispatch_queue_s {
    platform::ForkSafeMutex mutex;
    dispatch_queue_s* next;
};

namespace {

/// Keeps every queue reachable.
constinit std::atomic<dispatch_queue_s*> allQueues = nullptr;

}  // namespace

void dispatch_once_f(dispatch_once_t* predicate, void* context, dispatch_function_t work) {
    std::atomic_ref<dispatch_once_t> state(*predicate);
    if (state.load(std::memory_order_acquire) == kDone) return;
    dispatch_once_t seen = 0;
    {
        const platform::ForkSection section;
        if (state.compare_exchange_strong(seen, kRunning, std::memory_order_acquire)) {
            Run(work, context);
            state.store(kDone, std::memory_order_release);
            state.notify_all();
            return;
        }
    }
    while (seen != kDone) {
        state.wait(seen, std::memory_order_acquire);
        seen = state.load(std::memory_order_acquire);
    }
}

dispatch_queue_t dispatch_queue_create(const char*, dispatch_queue_attr_t) {
    auto* queue = new (std::nothrow) dispatch_queue_s{};
    if (!queue) return nullptr;
    queue->next = allQueues.load(std::memory_order_relaxed);
    while (!allQueues.compare_exchange_weak(queue->next, queue, std::memory_order_release, std::memory_order_relaxed)) {
    }
    return queue;
}

namespace {

constinit dispatch_queue_s mainQueue = {};

/// One piece of work on its way to the main run loop; it lives in the waiting thread.
struct MainWork {
    dispatch_function_t work;
    void* context;
    std::atomic<bool> isDone = false;
};

struct MainWorkQueue {
    platform::ForkSafeMutex lock;
    std::deque<MainWork*> waiting;        // guarded by the lock
    std::atomic<unsigned> doneCount = 0;  // tells the waiting threads to look
};
MainWorkQueue& MainWorks() {
    static constinit platform::MadeOnce<MainWorkQueue> queue;
    return *queue.Get();
}

/// Those who waited in the parent are not in the child.
const platform::InForkedChild sForgetOthersWork([] { MainWorks().waiting.clear(); });

gboolean RunMainWork(gpointer) {
    MainWorkQueue& queue = MainWorks();
    MainWork* item = nullptr;
    {
        const std::lock_guard guard(queue.lock);
        if (queue.waiting.empty()) return G_SOURCE_REMOVE;
        item = queue.waiting.front();
        queue.waiting.pop_front();
    }
    Run(item->work, item->context);
    item->isDone = true;
    // The item may be gone by now.
    ++queue.doneCount;
    queue.doneCount.notify_all();
    return G_SOURCE_REMOVE;
}

void RunOnMainLoop(dispatch_function_t work, void* context) {
    if (pthread_main_np()) {
        Run(work, context);
        return;
    }
    MainWork item{work, context};
    MainWorkQueue& queue = MainWorks();
    {
        const std::lock_guard guard(queue.lock);
        queue.waiting.push_back(&item);
        // One turn of this source for each piece of work.
        platform::CallOnMainContext(RunMainWork, nullptr, nullptr);
    }
    for (;;) {
        const unsigned seen = queue.doneCount;
        if (item.isDone) return;
        queue.doneCount.wait(seen);
    }
}

}  // namespace

dispatch_queue_t dispatch_get_main_queue(void) {
    return &mainQueue;
}

void dispatch_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
    if (queue == &mainQueue) {
        RunOnMainLoop(work, context);
        return;
    }
    const std::lock_guard lock(queue->mutex);
    Run(work, context);
}
