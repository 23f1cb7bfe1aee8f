#pragma once

/// The short lock, and which thread is the main one.

#include "platform/Export.h"

#if defined(__APPLE__)

#include <libkern/OSAtomic.h>
#include <pthread.h>

#elif defined(__linux__)

#include <stdint.h>

CM_C_BEGIN

/// 0 = free. For a few instructions only.
typedef int32_t OSSpinLock;
#define OS_SPINLOCK_INIT 0

void OSSpinLockLock(volatile OSSpinLock* lock);
void OSSpinLockUnlock(volatile OSSpinLock* lock);

/// 1 on the process's first thread, else 0.
int pthread_main_np(void);

CM_C_END

#else
#error "no backing for this system: macOS and Linux have one"
#endif
