#pragma once

#include <string>

#include "ColourMatch/ColourMatch.h"
#include "images/ImageReading.h"
#include "platform/Owned.h"

/// How an image's own colours become reference RGB.
struct SourceColour {
    Owned<ColorSyncProfileRef> profile;
    Owned<ColorSyncTransformRef> toReference;  // 16-bit samples to 16-bit reference RGB
    int channels = 3;                          // samples of a colour that go in: 1 grey, 3 RGB, 4 CMYK
    std::string profileName;
};

/// By the profile in the file `inputProfile`, where that is not empty; else by the embedded profile; without one, grey and RGB images are taken for
/// sRGB. Relative colorimetric, without black point compensation.
///
/// Throws Complaint for a CMYK image without a profile, and for a profile that is damaged or does not fit the image.
SourceColour FindSourceColour(VipsImage* image, const ImageShape& shape, const std::string& path, const std::string& inputProfile,
                              ColorSyncProfileRef reference);
