#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "images/VipsHold.h"

enum class ImageFormat { Png, Tiff, Jpeg, WebP, Avif, Heif, JpegXl, Ppm };

/// What the samples of a pixel are. Grey, RGB and CMYK have 1, 3 and 4 colours; alpha follows them.
struct ImageShape {
    int colours = 3;
    bool hasAlpha = false;
    int depth = 8;  // bits of a sample, 8 or 16

    int Samples() const { return colours + (hasAlpha ? 1 : 0); }
};

/// Which images are taken.
struct ReadingLimits {
    int64_t mostPixels = 250'000'000;
    bool takesDamaged = false;  // what is missing is then whatever libvips fills in
};

/// Starts libvips, quietly; before anything else here. Throws Complaint.
void StartVips();

/// Opens a file of any kind that libvips loads, told by its first bytes, for reading from top to bottom: pixels are decoded as they are asked for.
///
/// page      from 1
/// upright   whether it is turned where the file's orientation tag says so. A turned image is held as a whole, by libvips in a temporary file when it
/// is
///           large.
/// limits    what is taken
///
/// Throws Complaint, for damage DamageComplaint. Damage further down is found out here in a JPEG file, and else only when the pixels are asked for.
ImageHold OpenImage(const std::string& path, bool upright, int page, const ReadingLimits& limits);

/// How many pages the file of the image has.
int PagesOf(VipsImage* image);

/// Throws Complaint for anything but grey, RGB or CMYK of 8 or 16 bits.
ImageShape ExamineImage(VipsImage* image, const std::string& path);

/// The complaint about a file whose pixels cannot be decoded.
[[noreturn]] void ComplainOfDamage(const std::string& path);
