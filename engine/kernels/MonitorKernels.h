#pragma once

/// The loops behind the monitor's operations over tabulated models, one set for each instruction set. All sets give the same bytes, which are
/// those of the formulae in ShaperMatrix.

#include <stddef.h>

#include <span>

#include "engine/MonitorTables.h"
#include "platform/InstructionSet.h"

/// Pixels as the operations of DirectMonitor.h have them: the fourth word or the first byte neither read nor written where they say so.
struct MonitorKernels {
    platform::InstructionSet set;
    void (*match8)(const MonitorTables&, const uint16_t*, uint8_t*, size_t);
    void (*match16)(const MonitorTables&, const uint16_t*, uint16_t*, size_t);
    void (*predict8)(const MonitorTables&, const uint8_t*, uint16_t*, size_t);
    void (*predict16)(const MonitorTables&, const uint16_t*, uint16_t*, size_t);
    void (*gamut)(const MonitorTables&, const uint16_t*, uint8_t*, size_t);
};

/// The formula over the tables written straight. The sets leave to it what fills no block, and models that cannot be split; it is none of them, as
/// who allows plain only has the model itself evaluated.
extern const MonitorKernels kPlainMonitorKernels;

extern const MonitorKernels kPortableMonitorKernels;
#define CM_SET(name, text, runs) extern const MonitorKernels k##name##MonitorKernels;
CM_X86_SETS(CM_SET)
#undef CM_SET

/// Every set that was built, in rising order; platform::ProcessorRuns says which of them may be called.
std::span<const MonitorKernels* const> AllMonitorKernels();

/// What the operations use, or null where only the formulae themselves are allowed.
const MonitorKernels* MonitorKernelsInUse();
