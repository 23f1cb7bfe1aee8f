#include <glib.h>

#include <atomic>
#include <mutex>

#include "platform/CoreFoundation.h"
#include "platform/ForkSection.h"
#include "platform/linux/CoreFoundation/CoreFoundationObject.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"
#include "platform/linux/CoreFoundation/MainThread.h"

namespace {

constinit const __CFString kCommonModesText{u"kCFRunLoopCommonModes"};
constinit const __CFString kDefaultModeText{u"kCFRunLoopDefaultMode"};

gboolean PrepareSource(GSource* loopSource, gint* timeout);
gboolean DispatchSource(GSource* loopSource, GSourceFunc, gpointer);
void FinaliseSource(GSource* loopSource);

GSourceFuncs sSourceFunctions = {PrepareSource, nullptr, DispatchSource, FinaliseSource, nullptr, nullptr};

}  // namespace

struct __CFRunLoop {};

/// The source on the loop is armed by its ready time, so that any number of signals before the loop comes round bring one dispatch.
struct __CFRunLoopSource : platform::Object {
    __CFRunLoopSource(CFIndex sourceOrder, const CFRunLoopSourceContext& sourceContext);
    ~__CFRunLoopSource() {
        if (context.release && context.info) context.release(context.info);
    }

    CFRunLoopSourceContext context;
    CFIndex order;
    platform::ForkSafeMutex lock;
    GSource* attached = nullptr;  // guarded by the lock
    bool isSignalled = false;     // before it is attached; guarded by the lock
    std::atomic<bool> isValid{true};
};

namespace {

/// What GLib hands to the dispatcher. It holds a reference to its owner, as another thread may invalidate that while the loop is at it.
struct LoopSource {
    GSource base;
    __CFRunLoopSource* owner;
};

__CFRunLoopSource* OwnerOf(GSource* loopSource) {
    return reinterpret_cast<LoopSource*>(loopSource)->owner;
}

const platform::ObjectClass kSourceClass = {"CFRunLoopSource", platform::Delete<__CFRunLoopSource>};

/// Every turn of the loop begins here, in the thread that runs it. The ready time decides whether there is something to do.
gboolean PrepareSource(GSource*, gint* timeout) {
    platform::NoteMainLoopThread();
    *timeout = -1;
    return FALSE;
}

gboolean DispatchSource(GSource* loopSource, GSourceFunc, gpointer) {
    g_source_set_ready_time(loopSource, -1);
    const __CFRunLoopSource* const source = OwnerOf(loopSource);
    if (source->isValid && source->context.perform) source->context.perform(source->context.info);
    return G_SOURCE_CONTINUE;
}

void FinaliseSource(GSource* loopSource) {
    CFRelease(OwnerOf(loopSource));
}

/// The main run loop as this thread's for a while; false while another one runs it.
class LoopHold {
public:
    LoopHold() : isHeld_(g_main_context_acquire(nullptr)) {
        if (isHeld_) platform::NoteMainLoopThread();
    }
    LoopHold(const LoopHold&) = delete;
    LoopHold& operator=(const LoopHold&) = delete;
    ~LoopHold() {
        if (isHeld_) g_main_context_release(nullptr);
    }
    explicit operator bool() const { return isHeld_; }

private:
    bool isHeld_;
};

guint Milliseconds(CFTimeInterval seconds) {
    return static_cast<guint>(seconds < 4e6 ? seconds * 1000.0 + 0.5 : 4e9);
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
    if (!source) return;
    {
        const std::lock_guard guard(source->lock);
        if (source->attached || !source->isValid) return;
        GSource* const loopSource = g_source_new(&sSourceFunctions, sizeof(LoopSource));
        // The loop keeps the source alive until it is invalidated.
        reinterpret_cast<LoopSource*>(loopSource)->owner = static_cast<CFRunLoopSourceRef>(const_cast<void*>(CFRetain(source)));
        g_source_set_name(loopSource, "Orlo ColourMatching event source");
        g_source_set_priority(loopSource, G_PRIORITY_DEFAULT + static_cast<int>(source->order));
        if (std::exchange(source->isSignalled, false)) g_source_set_ready_time(loopSource, 0);
        source->attached = loopSource;
        g_source_attach(loopSource, nullptr);
    }
    if (source->context.schedule) source->context.schedule(source->context.info, loop, mode);
}

void CFRunLoopSourceSignal(CFRunLoopSourceRef source) {
    const std::lock_guard guard(source->lock);
    if (source->attached) {
        g_source_set_ready_time(source->attached, 0);
    } else {
        source->isSignalled = true;
    }
}

void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source) {
    if (!source->isValid.exchange(false)) return;
    GSource* taken = nullptr;
    {
        const std::lock_guard guard(source->lock);
        taken = std::exchange(source->attached, nullptr);
    }
    if (!taken) return;
    g_source_destroy(taken);
    if (source->context.cancel) source->context.cancel(source->context.info, CFRunLoopGetMain(), kCFRunLoopCommonModes);
    // With it goes the reference to the source, at once or when the loop is done with it.
    g_source_unref(taken);
}

Boolean CFRunLoopSourceIsValid(CFRunLoopSourceRef source) {
    return source->isValid;
}

void CFRunLoopWakeUp(CFRunLoopRef) {
    g_main_context_wakeup(nullptr);
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode, CFTimeInterval seconds, Boolean returnAfterSourceHandled) {
    const LoopHold hold;
    if (!hold) {
        // The loop is another thread's; only the time passes here.
        if (seconds > 0.0) g_usleep(Milliseconds(seconds) * gulong{1000});
        return kCFRunLoopRunTimedOut;
    }
    if (!(seconds > 0.0)) return g_main_context_iteration(nullptr, FALSE) ? kCFRunLoopRunHandledSource : kCFRunLoopRunTimedOut;

    bool isOver = false;
    GSource* const timeout = g_timeout_source_new(Milliseconds(seconds));
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
