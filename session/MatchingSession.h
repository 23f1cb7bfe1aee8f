#pragma once

/// The host's matching session: rebuilds the matching data whenever settings, display devices or their profiles change, and tells the host.

#include "settings/ProfileLocations.h"

CM_C_BEGIN

/// Called on the main thread with 'CHNG' (0x43484E47) after each rebuild that a change brought about: colours computed before are stale. When it
/// raises, the line "Matching system error" goes to standard output, and the session goes on.
typedef long (*MatchingNotifyProc)(OSType code, void* userData);

/// The open session's callback, null when there is none, and what it is called with.
CM_EXPORT_DATA extern MatchingNotifyProc gNotify;
CM_EXPORT_DATA extern void* gUserData;

/// Registers for changes and builds the first matching data, on the calling thread. Main thread.
///
/// callback   may be null
/// returns    0; -1 when no distributed notification centre exists (nothing is then registered, and the user is told)
CM_EXPORT OSErr OpenMatching(MatchingNotifyProc callback, void* userData);
/// Ends it and drops the current matching data; harmless without an open session. Always 0.
CM_EXPORT OSErr CloseMatching(void);

/// Somebody who wants to hear of changes beside the session's callback: a plug-in that shares its process with others.
typedef struct MatchingListener* MatchingListenerRef;

/// Opens the session where it is not open, and calls `callback` after each rebuild from then on. A session is open while OpenMatching holds it or a
/// listener is left, so that two plug-ins in one process do not silence each other; CloseMatching ends no listener. Main thread.
///
/// callback   may not be null; must be callable until it is removed
/// listener   receives what RemoveMatchingListener takes
/// returns    0; -1 as OpenMatching's; -50 for a null argument; -108
CM_EXPORT OSErr AddMatchingListener(MatchingNotifyProc callback, void* userData, MatchingListenerRef* listener);
/// Ends it, also within a callback; null and one that was removed are harmless. With the last one the session closes, unless OpenMatching holds it.
/// Main thread.
CM_EXPORT void RemoveMatchingListener(MatchingListenerRef listener);

/// Reads the store and rebuilds. Off the main thread it waits for the main thread to do so and answers 0 whatever came of it;
/// -1 when a failure was raised.
CM_EXPORT OSErr ReloadPreferences(void);
/// Recalls profile locations, viewing conditions and quality.
CM_EXPORT void LoadPreferences(void);
/// Validates the location and rebuilds from it and the stored settings; without a printer nothing is built and 0 returned. -1 when a failure was
/// raised.
CM_EXPORT OSErr RebuildMatchingSystemIfValidProfiles(ICCProfileLocation location);

CM_C_END
