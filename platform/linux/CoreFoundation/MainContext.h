#pragma once

#include <glib.h>

namespace platform {

/// Has `work` called once on the main thread, when its loop comes round, in a source of its own: g_main_context_invoke would call it in place while
/// no thread owns the context yet. `work` answers G_SOURCE_REMOVE; `release`, which may be null, has the context after it, also when the loop never
/// comes round. Any thread.
void CallOnMainContext(GSourceFunc work, gpointer context, GDestroyNotify release);

}  // namespace platform
