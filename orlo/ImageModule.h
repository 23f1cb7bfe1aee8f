#pragma once

/// What works on pictures stands in a module of its own, colourmatch/orlo-images.so beside the library. It is loaded when one of these is called, so
/// that no other command waits for libvips and all that libvips brings. They throw Complaint.

#include <string>

#include "orlo/ImageRequest.h"
#include "orlo/RampPlot.h"

/// Makes the output of the request, with a progress bar on a terminal.
ImageReport RunImage(const ImageRequest& request);

/// Writes the plot of a ramp as a PNG file.
void WritePlot(const RampEntries& ramp, const std::string& path);

// By these names the module is asked for the two.
extern "C" {
void OrloRunImage(const ImageRequest* request, ImageReport* report);
void OrloWritePlot(const RampEntries* ramp, const std::string* path);
}
