#include "platform/Posix.h"

#include <sched.h>

#include <atomic>

namespace {

/// About as long as a few instructions under the lock may take; after that the holder itself may be waiting for a processor.
constexpr int kSpins = 100;

void Pause() {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

std::atomic_ref<int32_t> State(volatile OSSpinLock* lock) {
    return std::atomic_ref<int32_t>(*const_cast<OSSpinLock*>(lock));
}

}  // namespace

void OSSpinLockLock(volatile OSSpinLock* lock) {
    const std::atomic_ref<int32_t> state = State(lock);
    while (state.exchange(1, std::memory_order_acquire) != 0) {
        // Reading alone leaves the holder's cache line in peace.
        for (int i = 0; state.load(std::memory_order_relaxed) != 0; ++i) {
            if (i < kSpins) {
                Pause();
            } else {
                sched_yield();
            }
        }
    }
}

void OSSpinLockUnlock(volatile OSSpinLock* lock) {
    State(lock).store(0, std::memory_order_release);
}
