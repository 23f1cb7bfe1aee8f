#pragma once

/// The current choice of profiles. Not locked: for the thread that changes settings and the main thread.

#include "platform/Carbon.h"

CM_C_BEGIN

/// A null field means not chosen.
typedef struct ICCProfileLocation {
    AliasHandle monitor;
    AliasHandle printer;
    AliasHandle proofer;
} ICCProfileLocation;

/// Fills the current record from the store. The handles it held before are not disposed of.
CM_EXPORT void RecallICCProfileLocation(void);
/// Writes the current record to the store; returns 0.
CM_EXPORT OSErr RememberICCProfileLocation(void);
/// The handles stay owned by the current record: neither dispose of them nor keep them past the next change.
CM_EXPORT void GetICCProfileLocation(ICCProfileLocation* location);
/// Copies the given handles (the caller keeps its own), makes them current and stores them. On an error (the memory manager's) nothing changes.
CM_EXPORT OSErr SetICCProfileLocation(const ICCProfileLocation* location);

CM_C_END
