#pragma once

#include <vector>

#include "images/Rendering.h"
#include "images/Transforms.h"

/// The profiles that a picture goes through. Borrowed.
struct RouteDevices {
    ColorSyncProfileRef source, proofer, printer;  // the proofer may be null
    ColorSyncProfileRef screen;                    // null: the picture is for the printer
};

/// A way between two devices, whose values are 16-bit samples on both sides.
struct Leg {
    Owned<ColorSyncTransformRef> transform;
    std::size_t channels;  // of what comes out
};

/// The way of a picture's colours through the devices: by the rendering to the first of them, and from there on as that one shows them.
///
/// Throws Complaint when there is none.
std::vector<Leg> RouteThrough(const RouteDevices& devices, const Rendering& rendering);
