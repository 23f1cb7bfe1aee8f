#pragma once

#include "ColourMatch/ColourMatch.h"
#include "platform/Owned.h"

/// From device values of the source's space to reference RGB: relative colorimetric, without black point compensation. Null when the profile has no
/// way to its connection space. Any thread.
Owned<ColorSyncTransformRef> TransformToReference(ColorSyncProfileRef source, ColorSyncProfileRef reference);

/// Samples of a colour in an image of the profile's space: 1 grey, 3 RGB, 4 CMYK; 0 for a profile that is for no image.
int ChannelsOfImages(ColorSyncProfileRef profile);
