#pragma once

#include "engine/MatchingData.h"

CM_C_BEGIN

typedef struct ViewingConditions {
    double flare;     // upper bound of the flare term; negative makes dark colours darker
    double contrast;  // tone curves are raised to 1 / contrast
    double aOffset;   // a* and b* shift of the adapted white
    double bOffset;
    Boolean usePrinter;  // adapt the monitor to the printer white instead
} ViewingConditions;

/// Bends the record's working monitor model: curves, matrices and reverse tables. For a record that no other thread uses yet. Without memory for the
/// new model, or when its curves swing too often (LoadMatchingData), the one there is stays in force, whole.
///
/// renderingIntent   'Rdr0' to 'Rdr3'; 'Rdr3' takes the unadjusted monitor on its absolute luminance
CM_EXPORT void DirectICCSetViewingConditions(MatchingData* data, uint32_t renderingIntent, const ViewingConditions* conditions);

CM_C_END

#ifdef __cplusplus
/// DirectICCSetViewingConditions with a status: 0, or -108 with the model as it was. Used inside the library.
OSErr BendMonitor(MatchingData* data, uint32_t renderingIntent, const ViewingConditions& conditions);
#endif
