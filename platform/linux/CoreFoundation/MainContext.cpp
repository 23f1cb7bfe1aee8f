#include "platform/linux/CoreFoundation/MainContext.h"

namespace platform {

void CallOnMainContext(GSourceFunc work, gpointer context, GDestroyNotify release) {
    GSource* const source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, work, context, release);
    g_source_attach(source, nullptr);
    g_source_unref(source);
}

}  // namespace platform
