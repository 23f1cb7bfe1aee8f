#pragma once

#include <array>
#include <optional>
#include <string>

#include "images/ImageReading.h"
#include "images/TiffCompression.h"

/// A kind of file, and what it holds.
struct FormatTraits {
    ImageFormat format;
    const char* name;                     // as --format takes it
    std::array<const char*, 2> suffixes;  // in small letters
    int mostBits;                         // of a sample
    bool holdsCMYK, holdsAlpha, holdsProfile;
    bool isExact;           // pixels come back as they were
    bool keepsOrientation;  // in a tag
    int longestSide;
};
const FormatTraits& TraitsOf(ImageFormat format);

/// Told by the name's suffix, in capitals or small letters; nothing for another suffix.
std::optional<ImageFormat> FormatOfName(const std::string& path);
/// By the name of a kind, one of FormatNames.
std::optional<ImageFormat> FormatCalled(const std::string& name);

/// Pulls the image's pixels through and writes them to `descriptor`, which is open for reading and writing. False when either fails.
bool WriteImage(VipsImage* image, ImageFormat format, TiffCompression compression, int descriptor);
