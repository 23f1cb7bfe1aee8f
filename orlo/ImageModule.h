#pragma once

/// What works on pictures stands in a module of its own, colourmatch-2/orlo-images.so beside the library. It is loaded when one of these is called,
/// so that no other command waits for libvips and all that libvips brings. They throw Complaint.

#include <string>

#include "orlo/ImageRequest.h"

/// Makes the output of the request, with a progress bar on a terminal.
ImageReport RunImage(const ImageRequest& request);

/// Draws an SVG picture into a PNG file.
void RenderPicture(const std::string& svg, const std::string& path);

// By these names the module is asked for the two.
extern "C" {
void OrloRunImage(const ImageRequest* request, ImageReport* report);
void OrloRenderPicture(const std::string* svg, const std::string* path);
}
