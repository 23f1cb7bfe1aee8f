#define OSSPINLOCK_USE_INLINED 0
#include "platform/Posix.h"

#include <sched.h>

namespace {

/// The longest wait between two looks, in pauses. Long before it the holder has done its few instructions, unless it waits for a processor itself.
constexpr int kLongestWait = 1024;

void Pause() {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

}  // namespace

CM_C_BEGIN
void OSSpinLockWait(volatile OSSpinLock* lock);
CM_C_END

// Every look takes the line away from the holder, so each wait is twice as long as the one before.
void OSSpinLockWait(volatile OSSpinLock* lock) {
    for (int wait = 1;; wait *= 2) {
        if (wait > kLongestWait) {
            wait = kLongestWait;
            sched_yield();
        }
        for (int i = 0; i < wait; ++i) Pause();
        if (__atomic_load_n(lock, __ATOMIC_RELAXED) == 0 && __atomic_exchange_n(lock, 1, __ATOMIC_ACQUIRE) == 0) return;
    }
}

void OSSpinLockLock(volatile OSSpinLock* lock) {
    if (__atomic_exchange_n(lock, 1, __ATOMIC_ACQUIRE) != 0) OSSpinLockWait(lock);
}

void OSSpinLockUnlock(volatile OSSpinLock* lock) {
    __atomic_store_n(lock, 0, __ATOMIC_RELEASE);
}
