#pragma once

/// Everything a host of the colour-matching library needs.

#include "appearance/AppearanceDescriptor.h"
#include "appearance/PixelMapping.h"
#include "appearance/ViewingConditions.h"
#include "colour/ChromaticAdaptation.h"
#include "colour/FixedPoint.h"
#include "colour/MatrixArithmetic.h"
#include "colour/WhitePointText.h"
#include "engine/DirectMonitor.h"
#include "engine/DirectPrinter.h"
#include "engine/MatchingData.h"
#include "engine/OneDTables.h"
#include "engine/ShaperMatrix.h"
#include "engine/ThreeDTables.h"
#include "platform/AppleEvents.h"
#include "platform/Carbon.h"
#include "platform/ColorSync.h"
#include "platform/CoreFoundation.h"
#include "profile/CurveSampling.h"
#include "profile/ProfileHeader.h"
#include "profile/ProfileLoading.h"
#include "profile/ProfileModel.h"
#include "session/ColourOperations.h"
#include "session/ControlInterface.h"
#include "session/Failure.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingSession.h"
#include "session/MatchingSettings.h"
#include "session/UserNotices.h"
#include "settings/PreferenceStore.h"
#include "settings/ProfileLocations.h"

#ifdef __cplusplus
#include "colour/ColourDifferences.h"
#include "colour/ColourValues.h"
#endif
