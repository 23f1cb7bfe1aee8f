#pragma once

#include <optional>
#include <string>

#include "images/ImageReading.h"
#include "images/TiffCompression.h"

/// Told by the name's suffix, in capitals or small letters; nothing for another suffix.
std::optional<ImageFormat> FormatOfName(const std::string& path);

/// Pulls the image's pixels through and writes them to `descriptor`, which is open for reading and writing. False when either fails.
bool WriteImage(VipsImage* image, ImageFormat format, TiffCompression compression, int descriptor);
