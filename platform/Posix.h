#pragma once

/// The short lock.

#include "platform/Export.h"

#if defined(__APPLE__)

#include <libkern/OSAtomic.h>

#elif defined(__linux__)

#include <stdint.h>

CM_C_BEGIN

/// 0 = free. For a few instructions only.
typedef int32_t OSSpinLock;
#define OS_SPINLOCK_INIT 0

void OSSpinLockLock(volatile OSSpinLock* lock);
void OSSpinLockUnlock(volatile OSSpinLock* lock);

CM_C_END

#else
#error "no backing for this system: macOS and Linux have one"
#endif
