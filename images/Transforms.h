#pragma once

#include <initializer_list>

#include "ColourMatch/ColourMatch.h"
#include "platform/Owned.h"

/// A device on the way of colours. Intent and compensation are those of the way to it, and of a first one how its own colours are read.
struct Stop {
    ColorSyncProfileRef profile;
    CFStringRef intent;
    bool compensatesBlack = false;
};

/// From the first device through those between to the last; null when there is no such way.
Owned<ColorSyncTransformRef> TransformThrough(std::initializer_list<Stop> stops);

/// Samples of a colour in an image of the profile's space: 1 grey, 3 RGB, 4 CMYK; 0 for a profile that is for no image.
int ChannelsOfImages(ColorSyncProfileRef profile);
