#pragma once

/// The tags that model a display directly: media white, colourants, luminance. Any thread.
///
/// Absent tags give zeros. s15.16 in host byte order.

#include "colour/FixedPoint.h"
#include "platform/ColorSync.h"

CM_C_BEGIN

/// The XYZ tag of that signature; (0, 0, 0) when absent or shorter than 20 bytes. The tag's type is not checked.
CM_EXPORT FixedXYZ GetMediaColourant(ColorSyncProfileRef profile, uint32_t signature);
/// 'wtpt', else the header's illuminant.
CM_EXPORT FixedXYZ GetMediaWhitePoint(ColorSyncProfileRef profile);
CM_EXPORT FixedXYZ GetProfileIlluminant(ColorSyncProfileRef profile);
CM_EXPORT void SetMediaColourant(ColorSyncMutableProfileRef profile, uint32_t signature, FixedXYZ xyz);
CM_EXPORT void SetMediaWhitePoint(ColorSyncMutableProfileRef profile, FixedXYZ xyz);
/// True exactly when all of rXYZ, rTRC, gXYZ, gTRC, bXYZ, bTRC are there; class, space and version do not matter.
CM_EXPORT Boolean IsMatrixModel(ColorSyncProfileRef profile);
/// Linear device RGB to XYZ on a scale where 65535 in gives 32768 = 1.0 out: columns are the colourants * 32768 / 65535, truncated.
/// -170 when the profile is no matrix model, or -108 without memory; the matrix is untouched then.
CM_EXPORT OSErr GetMonitorMatrix(ColorSyncProfileRef profile, FixedMatrix* matrix);
/// The Y of 'lumi' (candelas per square metre, s15.16), 0 when absent.
CM_EXPORT int32_t GetMonitorLuminance(ColorSyncProfileRef profile);

CM_C_END
