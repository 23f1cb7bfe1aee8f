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

/// Pixel by pixel; any processor. The other sets leave to it what fills no block, and models that cannot be split.
extern const MonitorKernels kPortableMonitorKernels;

#ifdef CM_AVX_KERNELS  // set by the build where it compiles them
extern const MonitorKernels kAvx2MonitorKernels;
extern const MonitorKernels kAvx512MonitorKernels;
#endif
#ifdef CM_NEON_KERNELS  // set by the build where it compiles them
extern const MonitorKernels kNeonMonitorKernels;
#endif

/// Every set that was built, in rising order; platform::ProcessorRuns says which of them may be called.
std::span<const MonitorKernels* const> AllMonitorKernels();

/// What the operations use, or null where only the formulae themselves are allowed.
const MonitorKernels* MonitorKernelsInUse();
