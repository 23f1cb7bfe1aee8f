#pragma once

/// The short lock, which thread is the main one, file calls, type and creator of files.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Export.h"

#if defined(__APPLE__)

#include <libkern/OSAtomic.h>
#include <pthread.h>
#include <sys/attr.h>
#include <sys/vnode.h>

#elif defined(__linux__)

#include <stddef.h>
#include <stdint.h>

CM_C_BEGIN

/// 0 = free. For a few instructions only.
typedef int32_t OSSpinLock;
#define OS_SPINLOCK_INIT 0

/// 0: as functions, which can be watched. In place unless told so: a call for one colour consists of little else.
#ifndef OSSPINLOCK_USE_INLINED
#define OSSPINLOCK_USE_INLINED 1
#endif

#if OSSPINLOCK_USE_INLINED
/// Returns with the lock, which another thread holds.
void OSSpinLockWait(volatile OSSpinLock* lock);
static inline void OSSpinLockLock(volatile OSSpinLock* lock) {
    if (__atomic_exchange_n(lock, 1, __ATOMIC_ACQUIRE) != 0) OSSpinLockWait(lock);
}
static inline void OSSpinLockUnlock(volatile OSSpinLock* lock) {
    __atomic_store_n(lock, 0, __ATOMIC_RELEASE);
}
#else
void OSSpinLockLock(volatile OSSpinLock* lock);
void OSSpinLockUnlock(volatile OSSpinLock* lock);
#endif

/// Which attributes of a file system object are asked for: only the two below, the others 0.
struct attrlist {
    uint16_t bitmapcount;  // ATTR_BIT_MAP_COUNT
    uint16_t reserved;
    uint32_t commonattr;
    uint32_t volattr;
    uint32_t dirattr;
    uint32_t fileattr;
    uint32_t forkattr;
};
#define ATTR_BIT_MAP_COUNT 5
#define ATTR_CMN_OBJTYPE 0x00000008
#define ATTR_CMN_FNDRINFO 0x00004000
enum { VNON = 0, VREG = 1, VDIR = 2 };

/// Writes the bytes' count (4), the object's type (VREG, VDIR, VNON for others; 4) and the Finder information (32: file type, creator, 24 further
/// bytes, which are 0 here), those that are asked for; links are followed. Type and creator are kept in an extended attribute of the file.
/// 0, or -1 with errno.
int getattrlist(const char* path, void* attributes, void* buffer, size_t size, unsigned options);
/// Stores type and creator, the first 8 of the 32 bytes of Finder information. ENOTSUP where the volume keeps no extended attributes.
int setattrlist(const char* path, void* attributes, void* buffer, size_t size, unsigned options);

/// 1 on the main thread, else 0. That is the one that runs the main run loop, or ran it last; while there is none yet, the process's first.
int pthread_main_np(void);

CM_C_END

#else
#error "no backing for this system: macOS and Linux have one"
#endif
