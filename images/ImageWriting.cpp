#include "images/ImageWriting.h"

#include <algorithm>
#include <filesystem>

namespace {

VipsForeignTiffCompression VipsCompression(TiffCompression compression) {
    switch (compression) {
        case TiffCompression::Lzw:
            return VIPS_FOREIGN_TIFF_COMPRESSION_LZW;
        case TiffCompression::Deflate:
            return VIPS_FOREIGN_TIFF_COMPRESSION_DEFLATE;
        case TiffCompression::None:
            break;
    }
    return VIPS_FOREIGN_TIFF_COMPRESSION_NONE;
}

}  // namespace

std::optional<ImageFormat> FormatOfName(const std::string& path) {
    std::string suffix = std::filesystem::path(path).extension().string();
    std::ranges::transform(suffix, suffix.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (suffix == ".png") return ImageFormat::Png;
    if (suffix == ".tif" || suffix == ".tiff") return ImageFormat::Tiff;
    if (suffix == ".jpg" || suffix == ".jpeg") return ImageFormat::Jpeg;
    return std::nullopt;
}

bool WriteImage(VipsImage* image, ImageFormat format, TiffCompression compression, int descriptor) {
    const VipsHold<VipsTarget> target(vips_target_new_to_descriptor(descriptor));
    if (!target) return false;
    switch (format) {
        case ImageFormat::Png:
            return vips_pngsave_target(image, target.get(), "filter", VIPS_FOREIGN_PNG_FILTER_ALL, nullptr) == 0;
        case ImageFormat::Tiff: {
            // An ordinary TIFF file ends at 4 GiB; compression can make the pixels larger, too.
            const bool large = VIPS_IMAGE_SIZEOF_IMAGE(image) > (guint64{3} << 30);
            return vips_tiffsave_target(image, target.get(), "compression", VipsCompression(compression), "predictor",
                                        VIPS_FOREIGN_TIFF_PREDICTOR_HORIZONTAL, "bigtiff", static_cast<gboolean>(large), nullptr) == 0;
        }
        case ImageFormat::Jpeg:
            // Colour is the point of the file: no coarser chroma.
            return vips_jpegsave_target(image, target.get(), "Q", 95, "subsample_mode", VIPS_FOREIGN_SUBSAMPLE_OFF, nullptr) == 0;
    }
    return false;
}
