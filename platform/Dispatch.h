#pragma once

/// Serial queues and once-only initialisation, in their function-pointer forms.

#include "platform/Export.h"

#if defined(__APPLE__)

#include <dispatch/dispatch.h>

#elif defined(__linux__)

CM_C_BEGIN

typedef long dispatch_once_t;
typedef struct dispatch_queue_s* dispatch_queue_t;
typedef const struct dispatch_queue_attr_s* dispatch_queue_attr_t;
typedef void (*dispatch_function_t)(void* context);

#define DISPATCH_QUEUE_SERIAL ((dispatch_queue_attr_t)0)

/// Runs `work(context)` exactly once for a predicate that starts as 0; later callers return after it has finished.
CM_EXPORT void dispatch_once_f(dispatch_once_t* predicate, void* context, dispatch_function_t work);
/// A serial queue that is never freed.
CM_EXPORT dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t attributes);
/// Runs `work(context)` alone among the queue's users, on the calling thread, and returns when it is done.
CM_EXPORT void dispatch_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work);

/// The queue whose work runs on the main run loop: dispatch_sync_f waits until somebody runs that loop. On the main thread itself the work runs
/// at once.
CM_EXPORT dispatch_queue_t dispatch_get_main_queue(void);

CM_C_END

#else
#error "no backing for this system: macOS and Linux have one"
#endif
