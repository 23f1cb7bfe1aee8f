// The main run loop is GLib's default main context: any host with a GLib, GTK or Qt loop runs it on its main thread.

#include "platform/Foundation.h"

#include <glib.h>

#include "platform/linux/CoreFoundation/MainContext.h"

namespace {

struct Call {
    void (*work)(void*);
    void* context;
    void (*release)(void*);
};

gboolean Run(gpointer data) {
    const auto* call = static_cast<Call*>(data);
    call->work(call->context);
    return G_SOURCE_REMOVE;
}

void Drop(gpointer data) {
    auto* call = static_cast<Call*>(data);
    if (call->release) call->release(call->context);
    g_free(call);
}

}  // namespace

namespace platform {

void RunLoopPerform(void (*work)(void*), void* context, void (*release)(void*)) {
    auto* call = g_new(Call, 1);
    *call = {work, context, release};
    CallOnMainContext(Run, call, Drop);
}

}  // namespace platform
