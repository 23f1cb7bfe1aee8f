#pragma once

/// What keeps a process that is forked while its threads work from leaving the child with locks that nobody will ever open: fork takes along all
/// memory, but of the threads only the one that called it.

#include <pthread.h>

#include <atomic>
#include <mutex>

namespace platform {

/// Work that a fork must not cut in half: everything under a lock, and calls into libraries that have locks of their own. A fork waits until no other
/// thread is in such work, and work that would begin waits until the fork is over. Sections may lie inside one another, and a thread may fork inside
/// its own. Any thread.
///
/// Only for work that comes to its end by itself: inside a section nobody may wait for what another thread has yet to begin.
class ForkSection {
public:
    ForkSection() { Enter(); }
    ForkSection(const ForkSection&) = delete;
    ForkSection& operator=(const ForkSection&) = delete;
    ~ForkSection() { Leave(); }

    static void Enter() {
        if (tDepth++ > 0) return;
        unsigned seen = sState.load(std::memory_order_relaxed);
        for (;;) {
            if (seen & kForking) {
                sState.wait(seen);
                seen = sState.load(std::memory_order_relaxed);
            } else if (sState.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire, std::memory_order_relaxed)) {
                return;
            }
        }
    }
    static void Leave() {
        if (--tDepth > 0) return;
        if (sState.fetch_sub(1, std::memory_order_release) & kForking) sState.notify_all();
    }

private:
    static constexpr unsigned kForking = 1u << 31;

    static void BeginFork() {
        unsigned seen = sState.load(std::memory_order_relaxed);
        for (;;) {
            if (seen & kForking) {
                sState.wait(seen);
                seen = sState.load(std::memory_order_relaxed);
            } else if (sState.compare_exchange_weak(seen, seen | kForking, std::memory_order_acquire, std::memory_order_relaxed)) {
                break;
            }
        }
        const unsigned own = OwnCount();
        while ((seen = sState.load(std::memory_order_acquire)) != (kForking | own)) sState.wait(seen);
        // Whatever else is called on the way into the fork and out of it finds the door open.
        ++tDepth;
    }
    static void EndForkInParent() {
        --tDepth;
        sState.fetch_and(~kForking, std::memory_order_release);
        sState.notify_all();
    }
    static void EndForkInChild() {
        --tDepth;
        sState.store(OwnCount(), std::memory_order_release);
    }
    static unsigned OwnCount() { return tDepth > 0 ? 1 : 0; }

    inline static constinit std::atomic<unsigned> sState = 0;  // threads in sections; kForking: one is about to fork
    inline static constinit thread_local unsigned tDepth = 0;
    inline static const int sRegistered = pthread_atfork(BeginFork, EndForkInParent, EndForkInChild);
};

/// A mutex that a forked child finds open. Those who wait for it are in no section: the thread that holds it may fork.
class ForkSafeMutex {
public:
    void lock() {
        for (;;) {
            ForkSection::Enter();
            const unsigned seen = unlocked_.load(std::memory_order_acquire);
            if (mutex_.try_lock()) return;
            ForkSection::Leave();
            unlocked_.wait(seen, std::memory_order_acquire);
        }
    }
    void unlock() {
        mutex_.unlock();
        unlocked_.fetch_add(1, std::memory_order_release);
        unlocked_.notify_one();
        ForkSection::Leave();
    }

private:
    std::mutex mutex_;
    std::atomic<unsigned> unlocked_ = 0;  // how often, for those who wait
};

/// Has `work` called in every forked child. For variables of the program.
class InForkedChild {
public:
    explicit InForkedChild(void (*work)()) { pthread_atfork(nullptr, nullptr, work); }
};

}  // namespace platform
