#include "session/MatchingSession.h"

#include <cstdio>
#include <mutex>
#include <utility>

#include "colour/WhitePointText.h"
#include "platform/Codes.h"
#include "platform/Dispatch.h"
#include "platform/ForkSection.h"
#include "platform/FourCharCode.h"
#include "platform/Owned.h"
#include "platform/Posix.h"
#include "session/EntryPoint.h"
#include "session/Failure.h"
#include "session/MatchingSettings.h"
#include "session/UserNotices.h"
#include "settings/PreferenceStore.h"

MatchingNotifyProc gNotify = nullptr;
void* gUserData = nullptr;

namespace {

/// Closing on one thread may meet a change that arrives on another.
constinit platform::ForkSafeMutex sSourceLock;
CFRunLoopSourceRef sColourChangedRunloopSource = nullptr;  // guarded by the lock

/// The identity under which the session registers its observers.
const void* ObserverIdentity() {
    return CFSTR("OBJECT");
}

/// Several signals before the main run loop comes round bring one rebuild.
void SignalChange() {
    const std::lock_guard guard(sSourceLock);
    if (sColourChangedRunloopSource) CFRunLoopSourceSignal(sColourChangedRunloopSource);
}

void SettingsChanged(CFNotificationCenterRef, void*, CFStringRef, const void*, CFDictionaryRef) {
    SignalChange();
}

void DevicesChanged(CFNotificationCenterRef, void*, CFStringRef, const void*, CFDictionaryRef) {
    SignalChange();
}

CFStringRef CopySourceDescription(const void*) {
    return static_cast<CFStringRef>(CFRetain(CFSTR("Orlo ColourMatching event source")));
}

void RebuildAfterChange(void*) {
    try {
        if (ReloadPreferences() != 0) return;
        if (const MatchingNotifyProc notify = gNotify) notify(FourChar("CHNG"), gUserData);
    } catch (...) {
        std::printf("Matching system error\n");
        // A host that writes into a file or a pipe may never get to fill the buffer.
        std::fflush(stdout);
    }
}

/// A stored white and whether it is to be used.
struct StoredWhite {
    FixedXYZ colour = {0, 0, 0};
    bool use = false;

    const FixedXYZ* InForce() const { return use ? &colour : nullptr; }
};

/// 0, or -108: a white that cannot be read for lack of memory is not the same as none.
OSErr ReadStoredWhite(OSErr (*recall)(CFStringRef*, Boolean*), StoredWhite* white) {
    CFStringRef text = nullptr;
    Boolean use = false;
    recall(&text, &use);
    const Owned<CFStringRef> owner(text);
    if (!use) return 0;
    return text ? ReadPCSXYZ(text, &white->colour, &white->use) : kStatusNoMemory;
}

void RecallSettings() {
    RecallICCProfileLocation();
    ICC_RecallViewingConditions();
    ICC_RecallMatchingQuality();
}

OSErr RebuildIfValid(const ICCProfileLocation& location) {
    OSErr status = ICC_Validate(&location);
    if (status != 0) return status;
    if (!location.printer) return 0;

    StoredWhite monitorWhite, printerWhite;
    status = ReadStoredWhite(ICC_RecallMonitorWhitepoint, &monitorWhite);
    if (status == 0) status = ReadStoredWhite(ICC_RecallPrinterWhitepoint, &printerWhite);
    if (status != 0) return status;
    ICC_SetMonitorWhitepoint(monitorWhite.InForce());
    ICC_SetPrinterWhitepoint(printerWhite.InForce());
    ICC_RecallViewingConditions();
    ICC_RecallMatchingQuality();
    return ICC_Load(&location);
}

OSErr RebuildFromCurrentLocation() {
    ICCProfileLocation location;
    GetICCProfileLocation(&location);
    return RebuildIfValid(location);
}

OSErr ReloadOnMainThread() {
    SynchronisePreferences(false);
    RecallICCProfileLocation();
    return RebuildFromCurrentLocation();
}

CFRunLoopSourceRef ExchangeChangeSource(CFRunLoopSourceRef source) {
    const std::lock_guard guard(sSourceLock);
    return std::exchange(sColourChangedRunloopSource, source);
}

/// Registers for the three notifications, puts the change source on the main run loop, and builds the first matching data.
void BeginSession(CFNotificationCenterRef centre) {
    CFNotificationCenterAddObserver(centre, ObserverIdentity(), SettingsChanged, CFSTR("com.brenwick.orlocms"), CFSTR("Change"),
                                    CFNotificationSuspensionBehaviorDeliverImmediately);
    CFNotificationCenterAddObserver(centre, ObserverIdentity(), DevicesChanged, CFSTR("CMDeviceStateNotification"), nullptr,
                                    CFNotificationSuspensionBehaviorCoalesce);
    CFNotificationCenterAddObserver(centre, ObserverIdentity(), DevicesChanged, CFSTR("CMDeviceProfilesNotification"), nullptr,
                                    CFNotificationSuspensionBehaviorCoalesce);

    CFRunLoopSourceContext context = {};
    context.copyDescription = CopySourceDescription;
    context.perform = RebuildAfterChange;
    const CFRunLoopSourceRef source = CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context);
    // Deliberate: a source from an earlier open is neither invalidated nor released.
    ExchangeChangeSource(source);
    FailNIL(source);
    CFRunLoopAddSource(CFRunLoopGetMain(), source, kCFRunLoopCommonModes);

    RecallSettings();
    RebuildFromCurrentLocation();
}

}  // namespace

OSErr OpenMatching(MatchingNotifyProc callback, void* userData) {
    const CFNotificationCenterRef centre = CFNotificationCenterGetDistributedCenter();
    if (!centre) {
        NotifyUser(CFSTR("Can't use colour matching"), CFSTR("CFNotificationCenterGetDistributedCenter: failed"));
        return -1;
    }
    gNotify = callback;
    gUserData = userData;
    try {
        BeginSession(centre);
    } catch (...) {
        // What was registered stays registered: CloseMatching takes it away.
    }
    return 0;
}

OSErr CloseMatching(void) {
    try {
        if (const CFNotificationCenterRef centre = CFNotificationCenterGetDistributedCenter()) {
            CFNotificationCenterRemoveEveryObserver(centre, ObserverIdentity());
        }
        const Owned<CFRunLoopSourceRef> source(ExchangeChangeSource(nullptr));
        if (source) CFRunLoopSourceInvalidate(source.Get());
        gNotify = nullptr;
        ICC_Null();
        NotifyWaitForQuit();
    } catch (...) {
        // The remaining steps are skipped.
    }
    return 0;
}

OSErr ReloadPreferences(void) {
    if (!pthread_main_np()) {
        // The main thread's status is not reported here.
        dispatch_sync_f(dispatch_get_main_queue(), nullptr, [](void*) { Guarded(ReloadOnMainThread); });
        return 0;
    }
    return Guarded(ReloadOnMainThread, kStatusFailed);
}

void LoadPreferences(void) {
    Guarded([] {
        RecallSettings();
        return 0;
    });
}

OSErr RebuildMatchingSystemIfValidProfiles(ICCProfileLocation location) {
    return Guarded([&location] { return RebuildIfValid(location); }, kStatusFailed);
}
