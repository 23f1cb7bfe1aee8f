#pragma once

#include <string>

#include "images/VipsHold.h"

/// Carries camera data (EXIF), IPTC and XMP from one image file into another, in place of what is there, where libvips does not: into TIFF files, out
/// of them, and between kinds. What described the old pixels stays behind: their layout, thumbnails, and the claim that they are sRGB.
///
/// upright   whether the new image was turned as the old one's orientation says
/// returns   why nothing could be carried; empty when all was, or when there is nothing to carry
std::string CarryMetadata(const std::string& from, const std::string& to, bool upright);

/// What an image file tells of the picture beside its pixels, its profile and its orientation.
struct CameraData {
    bool exif = false, iptc = false, xmp = false;
};
/// image   the file as libvips has opened it, for kinds that nothing else reads; may be null
CameraData CameraDataOf(const std::string& path, VipsImage* image);
