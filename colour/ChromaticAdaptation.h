#pragma once

/// The reference whites, the Bradford cone matrix, and the adaptation of one white to another. All s15.16.

#include "colour/FixedPoint.h"
#include "platform/Export.h"

CM_C_BEGIN

/// The white of the profile connection space (D50): 63190, 65536, 54061.
CM_EXPORT_DATA extern const FixedXYZ PCSWhite;
/// D65: 62273, 65536, 71335.
CM_EXPORT_DATA extern const FixedXYZ D65White;
/// XYZ to cone responses.
CM_EXPORT_DATA extern const FixedMatrix bradfordMatrix;

/// result = B^-1 * V * B, where V scales each cone by destination / source: applied to a colour seen under `source` it gives the
/// corresponding colour under `destination`.
///
/// The cone responses of `source` must not be 0. The first call in the process must not race with another.
CM_EXPORT void BradfordTransform(const FixedXYZ* source, const FixedXYZ* destination, FixedMatrix* result);

CM_C_END
