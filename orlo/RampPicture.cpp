#include "images/Complaint.h"
#include "images/ImageReading.h"
#include "images/ImageWriting.h"
#include "orlo/ImageModule.h"
#include "orlo/OutputFile.h"

extern "C" __attribute__((visibility("default"))) void OrloRenderPicture(const std::string* svg, const std::string* place) {
    StartVips();
    OutputFile file(*place);
    VipsImage *drawn = nullptr, *flat = nullptr;
    const bool isDrawn = vips_svgload_buffer(const_cast<char*>(svg->data()), svg->size(), &drawn, nullptr) == 0;
    const ImageHold held(drawn);
    // The picture is opaque.
    const bool isFlat = isDrawn && vips_extract_band(drawn, &flat, 0, "n", 3, nullptr) == 0;
    const ImageHold picture(flat);
    if (!isFlat) throw Complaint{*place, "the picture cannot be drawn", "use the suffix .svg, or a libvips that reads SVG", Exit::Failed};
    if (!WriteImage(flat, ImageFormat::Png, TiffCompression::None, file.Descriptor())) file.ComplainOfWriting();
    file.Commit();
}
