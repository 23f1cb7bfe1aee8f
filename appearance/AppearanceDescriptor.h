#pragma once

#include "appearance/ViewingConditions.h"
#include "platform/AppleEvents.h"

CM_C_BEGIN

/// The five viewing conditions as a record descriptor with the keys 'flar', 'cont', 'aOff', 'bOff' ('doub') and 'useP' ('bool'). The caller disposes
/// of *result (AEDisposeDesc); it is the null descriptor on an error.
CM_EXPORT OSErr MakeAppearanceDescriptor(const ViewingConditions* conditions, AEDesc* result);
/// Starts from the defaults and reads the five in that order; the first error is returned, and the fields after it keep their defaults.
CM_EXPORT OSErr UnpackAppearanceDescriptor(const AEDesc* descriptor, ViewingConditions* result);

CM_C_END
