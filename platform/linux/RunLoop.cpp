#include <glib.h>

#include <atomic>
#include <mutex>

#include "platform/CoreFoundation.h"
#include "platform/linux/CoreFoundationObject.h"
#include "platform/linux/CoreFoundationString.h"

namespace {

constinit const __CFString kCommonModesText{u"kCFRunLoopCommonModes"};
constinit const __CFString kDefaultModeText{u"kCFRunLoopDefaultMode"};

gboolean DispatchSource(GSource* loopSource, GSourceFunc, gpointer);

GSourceFuncs sSourceFunctions = {nullptr, nullptr, DispatchSource, nullptr, nullptr, nullptr};

}  // namespace

struct __CFRunLoop {};

/// The source on the loop is armed by its ready time, so that any number of signals before the loop comes round bring one dispatch.
struct __CFRunLoopSource : platform::Object {
    __CFRunLoopSource(CFIndex sourceOrder, const CFRunLoopSourceContext& sourceContext);
    ~__CFRunLoopSource() {
        Detach();
        if (context.release && context.info) context.release(context.info);
    }

    void Detach() {
        GSource* taken = nullptr;
        {
            const std::lock_guard<std::mutex> guard(lock);
            taken = std::exchange(attached, nullptr);
        }
        if (!taken) return;
        g_source_destroy(taken);
        g_source_unref(taken);
    }

    CFRunLoopSourceContext context;
    CFIndex order;
    std::mutex lock;
    GSource* attached = nullptr;  // guarded by the lock
    bool isSignalled = false;     // before it is attached; guarded by the lock
    std::atomic<bool> isValid{true};
};

namespace {

/// What GLib hands to the dispatcher.
struct LoopSource {
    GSource base;
    __CFRunLoopSource* owner;
};

const platform::ObjectClass kSourceClass = {"CFRunLoopSource", platform::Delete<__CFRunLoopSource>};

gboolean DispatchSource(GSource* loopSource, GSourceFunc, gpointer) {
    g_source_set_ready_time(loopSource, -1);
    __CFRunLoopSource* const source = reinterpret_cast<LoopSource*>(loopSource)->owner;
    // The work may invalidate and release the source.
    CFRetain(source);
    if (source->isValid && source->context.perform) source->context.perform(source->context.info);
    CFRelease(source);
    return G_SOURCE_CONTINUE;
}

gboolean EndWait(gpointer isOver) {
    *static_cast<bool*>(isOver) = true;
    return G_SOURCE_CONTINUE;
}

}  // namespace

__CFRunLoopSource::__CFRunLoopSource(CFIndex sourceOrder, const CFRunLoopSourceContext& sourceContext)
    : Object(kSourceClass), context(sourceContext), order(sourceOrder) {
    if (context.retain && context.info) context.info = const_cast<void*>(context.retain(context.info));
}

extern "C" const CFRunLoopMode kCFRunLoopCommonModes = &kCommonModesText;
extern "C" const CFRunLoopMode kCFRunLoopDefaultMode = &kDefaultModeText;

CFRunLoopRef CFRunLoopGetMain(void) {
    static __CFRunLoop mainLoop;
    return &mainLoop;
}

CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef, CFIndex order, CFRunLoopSourceContext* context) {
    return platform::NewObject<__CFRunLoopSource>(order, *context);
}

void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    if (!source || !source->isValid) return;
    {
        const std::lock_guard<std::mutex> guard(source->lock);
        if (source->attached) return;
        GSource* const loopSource = g_source_new(&sSourceFunctions, sizeof(LoopSource));
        reinterpret_cast<LoopSource*>(loopSource)->owner = source;
        g_source_set_name(loopSource, "Orlo ColourMatching event source");
        g_source_set_priority(loopSource, G_PRIORITY_DEFAULT + static_cast<int>(source->order));
        if (std::exchange(source->isSignalled, false)) g_source_set_ready_time(loopSource, 0);
        // The loop keeps the source alive until it is invalidated.
        CFRetain(source);
        source->attached = loopSource;
        g_source_attach(loopSource, nullptr);
    }
    if (source->context.schedule) source->context.schedule(source->context.info, loop, mode);
}

void CFRunLoopSourceSignal(CFRunLoopSourceRef source) {
    const std::lock_guard<std::mutex> guard(source->lock);
    if (source->attached) {
        g_source_set_ready_time(source->attached, 0);
    } else {
        source->isSignalled = true;
    }
}

void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source) {
    if (!source->isValid.exchange(false)) return;
    bool wasAttached;
    {
        const std::lock_guard<std::mutex> guard(source->lock);
        wasAttached = source->attached != nullptr;
    }
    source->Detach();
    if (!wasAttached) return;
    if (source->context.cancel) source->context.cancel(source->context.info, CFRunLoopGetMain(), kCFRunLoopCommonModes);
    CFRelease(source);
}

Boolean CFRunLoopSourceIsValid(CFRunLoopSourceRef source) {
    return source->isValid;
}

void CFRunLoopWakeUp(CFRunLoopRef) {
    g_main_context_wakeup(nullptr);
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode, CFTimeInterval seconds, Boolean returnAfterSourceHandled) {
    if (!(seconds > 0.0)) return g_main_context_iteration(nullptr, FALSE) ? kCFRunLoopRunHandledSource : kCFRunLoopRunTimedOut;

    bool isOver = false;
    GSource* const timeout = g_timeout_source_new(static_cast<guint>(seconds < 4e6 ? seconds * 1000.0 + 0.5 : 4e9));
    g_source_set_callback(timeout, EndWait, &isOver, nullptr);
    g_source_attach(timeout, nullptr);
    bool wasHandled = false;
    while (!isOver && !(wasHandled && returnAfterSourceHandled)) {
        g_main_context_iteration(nullptr, TRUE);
        wasHandled = !isOver;
    }
    g_source_destroy(timeout);
    g_source_unref(timeout);
    return wasHandled && returnAfterSourceHandled ? kCFRunLoopRunHandledSource : kCFRunLoopRunTimedOut;
}
