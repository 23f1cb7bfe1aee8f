#include "session/MatchingSession.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

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

}  // namespace

struct MatchingListener {
    MatchingNotifyProc callback;
    void* userData;
};

namespace {

/// Main thread only. A listener that is removed while they are told leaves a null in its place.
std::vector<std::unique_ptr<MatchingListener>> sListeners;
int sTelling = 0;          // calls that tell them, one within the other where a callback runs the main loop
bool sIsHeldOpen = false;  // by OpenMatching

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

/// Runs the body; when it raises, says so on standard output.
template <typename Body>
void Reporting(Body body) {
    try {
        body();
    } catch (...) {
        std::printf("Matching system error\n");
        // A host that writes into a file or a pipe may never get to fill the buffer.
        std::fflush(stdout);
    }
}

void DropRemovedListeners() {
    if (sTelling == 0) std::erase(sListeners, nullptr);
}

/// One that raises keeps the others from nothing. One that is added meanwhile has seen the change.
void TellListeners() {
    ++sTelling;
    const std::size_t count = sListeners.size();
    for (std::size_t i = 0; i < count; ++i) {
        if (!sListeners[i]) continue;
        const MatchingListener told = *sListeners[i];
        Reporting([told] { told.callback(FourChar("CHNG"), told.userData); });
    }
    --sTelling;
    DropRemovedListeners();
}

void RebuildAfterChange(void*) {
    bool isRebuilt = false;
    Reporting([&isRebuilt] {
        isRebuilt = ReloadPreferences() == 0;
        if (!isRebuilt) return;
        if (const MatchingNotifyProc notify = gNotify) notify(FourChar("CHNG"), gUserData);
    });
    if (isRebuilt) TellListeners();
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

/// The centre that a session needs. Without it the user is told, and null returned.
CFNotificationCenterRef CentreOfSession() {
    const CFNotificationCenterRef centre = CFNotificationCenterGetDistributedCenter();
    if (!centre) NotifyUser(CFSTR("Can't use colour matching"), CFSTR("CFNotificationCenterGetDistributedCenter: failed"));
    return centre;
}

/// What was registered before something was raised stays registered: ending the session takes it away.
void BeginGuarded(CFNotificationCenterRef centre) {
    Guarded([centre] {
        BeginSession(centre);
        return 0;
    });
}

/// Steps after one that raises are skipped.
void EndSession() {
    Guarded([] {
        if (const CFNotificationCenterRef centre = CFNotificationCenterGetDistributedCenter()) {
            CFNotificationCenterRemoveEveryObserver(centre, ObserverIdentity());
        }
        const Owned<CFRunLoopSourceRef> source(ExchangeChangeSource(nullptr));
        if (source) CFRunLoopSourceInvalidate(source.Get());
        gNotify = nullptr;
        ICC_Null();
        NotifyWaitForQuit();
        return 0;
    });
}

bool HasListeners() {
    return std::ranges::any_of(sListeners, [](const auto& listener) { return listener != nullptr; });
}

OSErr AddListener(MatchingNotifyProc callback, void* userData, MatchingListenerRef* listener) {
    const bool isOpen = sIsHeldOpen || HasListeners();
    const CFNotificationCenterRef centre = isOpen ? nullptr : CentreOfSession();
    if (!isOpen && !centre) return kStatusFailed;
    sListeners.push_back(std::make_unique<MatchingListener>(MatchingListener{callback, userData}));
    *listener = sListeners.back().get();
    if (!isOpen) BeginGuarded(centre);
    return 0;
}

}  // namespace

OSErr OpenMatching(MatchingNotifyProc callback, void* userData) {
    const CFNotificationCenterRef centre = CentreOfSession();
    if (!centre) return kStatusFailed;
    gNotify = callback;
    gUserData = userData;
    sIsHeldOpen = true;
    BeginGuarded(centre);
    return 0;
}

OSErr CloseMatching(void) {
    EndSession();
    sIsHeldOpen = false;
    // The listeners' session goes on, with a record of its own.
    if (!HasListeners()) return 0;
    if (const CFNotificationCenterRef centre = CFNotificationCenterGetDistributedCenter()) BeginGuarded(centre);
    return 0;
}

OSErr AddMatchingListener(MatchingNotifyProc callback, void* userData, MatchingListenerRef* listener) {
    if (listener) *listener = nullptr;
    if (!callback || !listener) return kStatusParameter;
    return Guarded([=] { return AddListener(callback, userData, listener); }, kStatusNoMemory);
}

void RemoveMatchingListener(MatchingListenerRef listener) {
    const auto found = std::ranges::find_if(sListeners, [listener](const auto& each) { return listener && each.get() == listener; });
    if (found == sListeners.end()) return;
    found->reset();
    DropRemovedListeners();
    if (!sIsHeldOpen && !HasListeners()) EndSession();
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
