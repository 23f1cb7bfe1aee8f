#include "platform/linux/CoreFoundation/MainThread.h"

#include <glib.h>
#include <unistd.h>

#include <atomic>

#include "platform/ForkSection.h"
#include "platform/Posix.h"

namespace {

/// Its address stands for the thread.
thread_local char tThread;

/// The thread that ran the main run loop last, while it lives; null before.
constinit std::atomic<const char*> sLoopThread = nullptr;

/// The loop is free for another thread when the one that ran it ends.
struct LoopThreadEnd {
    ~LoopThreadEnd() {
        const char* own = &tThread;
        sLoopThread.compare_exchange_strong(own, nullptr);
    }
    bool isWatched = false;
};
thread_local LoopThreadEnd tEnd;

/// In a forked child GLib may still take a thread of the parent for the one that runs the loop.
constinit std::atomic<bool> sIsInherited = false;

/// In a child the thread that forked is the only one, so the loop is its own.
const platform::InForkedChild sInherit([] {
    sLoopThread = &tThread;
    sIsInherited = true;
});

bool OthersRunTheLoop() {
    if (sIsInherited) return false;
    if (!g_main_context_acquire(nullptr)) return true;
    g_main_context_release(nullptr);
    return false;
}

}  // namespace

void platform::NoteMainLoopThread() {
    if (sLoopThread.load(std::memory_order_relaxed) == &tThread) return;
    tEnd.isWatched = true;
    sLoopThread = &tThread;
    sIsInherited = false;
}

int pthread_main_np(void) {
    // Hosts such as Qt let go of the loop between two turns.
    const char* const loopThread = sLoopThread;
    // The context has a lock of its own, and for a moment this thread may be its owner: neither may be taken into a child.
    const platform::ForkSection section;
    if (sIsInherited && loopThread == &tThread) return 1;
    if (g_main_context_is_owner(nullptr)) return 1;
    if (OthersRunTheLoop()) return 0;
    return loopThread ? loopThread == &tThread : gettid() == getpid();
}
