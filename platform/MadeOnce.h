#pragma once

#include <atomic>
#include <mutex>

#include "platform/ForkSection.h"

namespace platform {

/// What is made when it is first asked for and lives to the end of the process: other threads may still ask while it ends. Unlike a static of a
/// function, which may be half made then, a forked child finds it made or not made. For constinit variables; any thread.
template <typename T>
class MadeOnce {
public:
    T* Get() {
        return Get([] { return new T; });
    }
    /// make    answers the object, or null, which is kept too. What it raises is passed on, and the next call tries again.
    template <typename Make>
    T* Get(Make make) {
        if (isMade_.load(std::memory_order_acquire)) return made_;
        const std::lock_guard lock(making_);
        if (!isMade_.load(std::memory_order_relaxed)) {
            made_ = make();
            isMade_.store(true, std::memory_order_release);
        }
        return made_;
    }

private:
    std::atomic<bool> isMade_ = false;
    T* made_ = nullptr;
    ForkSafeMutex making_;
};

}  // namespace platform
