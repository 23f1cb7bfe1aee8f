#pragma once

/// Everything built from one choice of profiles. Created complete or not at all; read by any number of threads.

#include "appearance/PixelMapping.h"
#include "colour/FixedPoint.h"
#include "engine/ShaperMatrix.h"
#include "platform/Carbon.h"
#include "platform/ColorSync.h"

CM_C_BEGIN

/// A 3-D table with a matrix before it; three values a node.
typedef struct ThreeDTable {
    FixedMatrix matrix;
    uint32_t gridPoints;
    uint16_t* table;
} ThreeDTable;

typedef struct MatchingData {
    int32_t referenceCount;          // guarded by the lock of MatchingDataHandle
    ICC_ShaperMatrix monitorShaper;  // the working monitor model, bent by viewing conditions
    ICC_ShaperMatrix baseShaper;     // the same as loaded
    FixedXYZ printerWhite;           // the caller's, else the printer profile's media white
    FixedXYZ printerMediaWhite;
    FixedXYZ referenceIlluminant;
    int32_t monitorLuminance;  // cd/m2, s15.16
    FixedXYZ monitorWhite;
    uint32_t useMonitorWhite;      // 1 when the caller gave a monitor white
    FixedMatrix referenceInverse;  // XYZ to reference RGB
    FixedMatrix monitorMatrix;     // linear monitor RGB to XYZ
    ThreeDTable match3D, predict3D, gamut3D, proof3D;
    uint32_t tablesBuilt;  // 1 while the grid tables are in force
    PixelTable matchTable, proofTable, predictTable, gamutTable;
    uint32_t printerColourSpace;  // 'RGB ' or 'CMYK'
    ColorSyncTransformRef printerMatchTransform, printerPredictTransform, proofTransform;
    struct MonitorTables* monitorTables;  // monitorShaper tabulated, for speed; null: the operations compute what they would look up
} MatchingData;

/// Builds a record.
///
/// profiles        alias handles in the order monitor, printer, proofer; the proofer may be null. Borrowed.
/// useProofer      0: no proofer, whatever profiles[2] holds
/// monitorWhite    the fixed white to adapt the monitor to, or null
/// printerWhite    the white to give the printer in place of its media white, or null
/// status          0; -43 without a printer, or without the library's own reference profile; -50 when a transform cannot be made; -108 without
///                 memory, and for a monitor whose curves have more than 65536 entries or swing so often that their inverses would take more than
///                 20 MiB; -170 for a file that is no profile, a monitor that is no usable matrix model, a printer that is driven by neither RGB
///                 nor CMYK and a proofer of more than 10 channels; else what opening or reading a profile answered
/// returns         a record with reference count 1 (DisposeMatchingData, or hand it to SetMatchingData), or null
CM_EXPORT MatchingData* LoadMatchingData(const AliasHandle profiles[3], uint8_t useProofer, const FixedXYZ* monitorWhite,
                                         const FixedXYZ* printerWhite, OSErr* status);

/// 'Qua0' builds the four grid tables and puts them in force; any other code turns them off and keeps them. 0, or -108.
/// Any code tabulates the working monitor model where that has not been done since it changed, as SetMatchingData does.
CM_EXPORT OSErr SetDirectMatchingQuality(MatchingData* data, uint32_t quality);
/// Fills the four allocated grid tables from the working monitor model and the proof transform.
CM_EXPORT void BuildMatchingTables(MatchingData* data);
/// Frees the record and all it owns; null is allowed. No thread may still be using it.
CM_EXPORT void DisposeMatchingData(MatchingData* data);

CM_C_END
